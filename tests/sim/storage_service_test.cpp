// The simulated service as a local server: registration, activation, its version in the
// registry, activation faults, suspension and disconnection when it stops.
#include "tests/sim/support/storagefixture.h"

#include "pal/winreg.h"

namespace {

using orvtest::storage::CTestSink;
using orvtest::storage::StorageTest;
using orvtest::storage::TakeError;

std::string ReadProductVersion()
{
    HKEY hKey = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software\\Halvern\\Tessera", 0, KEY_READ, &hKey) !=
        ERROR_SUCCESS)
        return "<no key>";
    WCHAR sz[64] = {};
    DWORD cb = sizeof(sz), dwType = 0;
    LSTATUS status = RegQueryValueExW(hKey, u"ProductVersion", nullptr, &dwType,
                                      reinterpret_cast<LPBYTE>(sz), &cb);
    RegCloseKey(hKey);
    if (status != ERROR_SUCCESS || dwType != REG_SZ)
        return "<no value>";
    return orvtest::Narrow(sz);
}

using StorageServiceTest = StorageTest;

TEST_F(StorageServiceTest, StartWritesTheVersionUnderTheServicesKey)
{
    EXPECT_EQ("3.5.1.0", ReadProductVersion());
    m_service.Stop();
    ASSERT_HR(S_OK, storagesim::SetProductVersion("3.1.9.9"));
    ASSERT_HR(S_OK, m_service.Start());
    EXPECT_EQ("3.1.9.9", ReadProductVersion());
}

TEST_F(StorageServiceTest, BothClassesAreServedAsLocalServersWithErrorInformation)
{
    CComPtr<IVSSSupport> pSupport = NewVssSupport();
    ASSERT_NE(nullptr, static_cast<IVSSSupport*>(pSupport));
    for (const IID* piid : {&IID_ISnapShot, &IID_ICallFactory, &IID_IConnectionPointContainer}) {
        CComPtr<IUnknown> pUnk;
        EXPECT_HR(S_OK, pSupport->QueryInterface(*piid, reinterpret_cast<void**>(&pUnk)));
    }
    CComPtr<ISnapShot> pSnapShot;
    EXPECT_HR(S_OK, pSnapShot.CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER));
    CComPtr<IHyperVSupport> pHyperV;
    ASSERT_HR(S_OK, pHyperV.CoCreateInstance(CLSID_HyperVSupport, nullptr, CLSCTX_LOCAL_SERVER));
    CComPtr<IUnknown> pWrong;
    EXPECT_HR(E_NOINTERFACE,
              pHyperV->QueryInterface(IID_IVSSSupport, reinterpret_cast<void**>(&pWrong)));

    CComPtr<ISupportErrorInfo> pSupportErrorInfo;
    ASSERT_HR(S_OK, pSupport.QueryInterface(&pSupportErrorInfo));
    EXPECT_HR(S_OK, pSupportErrorInfo->InterfaceSupportsErrorInfo(IID_IVSSSupport));
    EXPECT_HR(S_OK, pSupportErrorInfo->InterfaceSupportsErrorInfo(IID_ISnapShot));
    EXPECT_HR(S_FALSE, pSupportErrorInfo->InterfaceSupportsErrorInfo(IID_ICallFactory));
    CComPtr<AsyncIVSSSupport> pCall = NewCall(pSupport);
    ASSERT_HR(S_OK, pCall.QueryInterface(&pSupportErrorInfo));
    EXPECT_HR(S_OK, pSupportErrorInfo->InterfaceSupportsErrorInfo(IID_AsyncIVSSSupport));
}

TEST_F(StorageServiceTest, HyperVAnswersTheHostsSettingsAndRaisesItsFailures)
{
    CComPtr<IHyperVSupport> pHyperV;
    ASSERT_HR(S_OK, pHyperV.CoCreateInstance(CLSID_HyperVSupport, nullptr, CLSCTX_LOCAL_SERVER));
    BOOLEAN fEnabled = 7, fInstalled = 7;
    EXPECT_HR(S_OK, pHyperV->IsHyperVRoleEnabled(&fEnabled));
    EXPECT_EQ(1, fEnabled);
    ASSERT_HR(S_OK, storagesim::SetHyperV(true, false));
    EXPECT_HR(S_OK, pHyperV->IsHyperVRoleEnabled(&fEnabled));
    EXPECT_EQ(0, fEnabled);
    EXPECT_HR(S_OK, pHyperV->IsHyperVInstalled(&fInstalled));
    EXPECT_EQ(1, fInstalled);
    EXPECT_HR(E_POINTER, pHyperV->IsHyperVRoleEnabled(nullptr));

    // The checked call raises the failure with its error object, once.
    ASSERT_HR(S_OK, storagesim::SetFault("IsHyperVRoleEnabled", RPC_E_SERVERFAULT, 1));
    try {
        pHyperV.Invoke(&IHyperVSupport::IsHyperVRoleEnabled, &fEnabled);
        FAIL() << "no exception";
    } catch (const _com_error& e) {
        EXPECT_HR(RPC_E_SERVERFAULT, e.Error());
        BSTR bstr = e.Description();
        ASSERT_NE(nullptr, bstr);
        EXPECT_EQ("IsHyperVRoleEnabled failed (injected fault)", orvtest::Narrow(bstr));
        SysFreeString(bstr);
        bstr = e.Source();
        EXPECT_EQ("Tessera.HyperVSupport.1", orvtest::Narrow(bstr));
        SysFreeString(bstr);
    }
    EXPECT_HR(S_OK, pHyperV.Invoke(&IHyperVSupport::IsHyperVRoleEnabled, &fEnabled));
}

// The service stands for a process of its own: the suspension of the process that serves it (a
// provider's service shutting down) does not reach it.
TEST_F(StorageServiceTest, ActivationFaultFailsCoCreateInstanceAndTheProcessSuspensionDoesNot)
{
    ASSERT_HR(S_OK, storagesim::SetFault("CreateInstance", E_ACCESSDENIED, 1));
    IVSSSupport* pSupport = reinterpret_cast<IVSSSupport*>(0x1);
    EXPECT_HR(E_ACCESSDENIED,
              CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER, IID_IVSSSupport,
                               reinterpret_cast<void**>(&pSupport)));
    EXPECT_EQ(nullptr, pSupport);
    EXPECT_NE(nullptr, static_cast<IVSSSupport*>(NewVssSupport()));
    ASSERT_HR(S_OK, CoSuspendClassObjects());
    EXPECT_NE(nullptr, static_cast<IVSSSupport*>(NewVssSupport()));
    ASSERT_HR(S_OK, CoResumeClassObjects());
}

TEST_F(StorageServiceTest, StoppedServiceIsNotRegisteredAndItsObjectsAreGone)
{
    CComPtr<IVSSSupport> pSupport = NewVssSupport();
    m_service.Stop();
    IVSSSupport* pNew = nullptr;
    EXPECT_HR(REGDB_E_CLASSNOTREG,
              CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER, IID_IVSSSupport,
                               reinterpret_cast<void**>(&pNew)));
    CComPtr<IConnectionPointContainer> pContainer;
    EXPECT_HR(CO_E_OBJNOTCONNECTED, pSupport.QueryInterface(&pContainer));
    BOOLEAN fSupported = 0;
    EXPECT_HR(CO_E_OBJNOTCONNECTED, pSupport->IsUnlockedCloneSupported(u"verdane01", &fSupported));
    EXPECT_FALSE(TakeError().fPresent);
    // Releasing what a client held of a stopped service is harmless.
    pSupport.Release();
    EXPECT_EQ(0u, storagesim::LiveObjectCount());
}

TEST_F(StorageServiceTest, StopReleasesTheAdvisedSinks)
{
    CComPtr<IVSSSupport> pSupport = NewVssSupport();
    auto pSink = NewSink();
    Advise(pSupport, pSink);
    pSink->AddRef();
    EXPECT_EQ(2u, pSink->Release());
    m_service.Stop();
    pSink->AddRef();
    EXPECT_EQ(1u, pSink->Release());
}

} // namespace
