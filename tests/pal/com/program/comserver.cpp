// The test server of out-of-process COM. "serve [journal]" registers CLSID_TestEcho and
// CLSID_TestProvider as local servers (with "journal", the provider says each call it receives),
// says "ready" and serves until
// its standard input closes. "hold N [CLSID]" creates N echo objects (or N objects of CLSID,
// asked as IUnknown) from the server that serves the class, says "held" and keeps them until it
// is killed or its input closes.
// Started by COM's activation (a last argument "-Embedding"): "embedded" serves as "serve" does
// until its last object has gone, "exit" ends at once, "silent" never registers the class.
#include "pal/atlcom.h"
#include "tests/pal/com/program/echo.h"
#include "tests/pal/com/program/provider.h"

#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

namespace {

using orvtest::com::CEcho;

bool g_fJournal = false;

// Says Line(method, args...) with "journal"; S_OK.
template <class... A>
HRESULT Say(const char* pszMethod, const A&... args)
{
    if (g_fJournal) {
        std::printf("%s\n", orvtest::com::Line(pszMethod, args...).c_str());
        std::fflush(stdout);
    }
    return S_OK;
}

HRESULT Rewrite(VDS_LUN_INFORMATION* rgLuns, long long cLuns)
{
    for (int i = 0; i < cLuns; ++i) {
        orvtest::FreeLunInformation(rgLuns[i]);
        orvtest::com::RewrittenLun(i).Build(rgLuns[i]);
    }
    return S_OK;
}

using orvtest::com::Texts;
using Lun = VDS_LUN_INFORMATION;

class CTestProvider : public CComObjectRootEx<CComMultiThreadModel>,
                      public IVssHardwareSnapshotProviderEx,
                      public IVssProviderCreateSnapshotSet,
                      public IVssProviderNotifications,
                      public IOrvaneHardwareProvider
{
public:
    BEGIN_COM_MAP(CTestProvider)
    COM_INTERFACE_ENTRY(IVssHardwareSnapshotProviderEx)
    COM_INTERFACE_ENTRY(IVssHardwareSnapshotProvider)
    COM_INTERFACE_ENTRY(IVssProviderCreateSnapshotSet)
    COM_INTERFACE_ENTRY(IVssProviderNotifications)
    COM_INTERFACE_ENTRY(IOrvaneHardwareProvider)
    END_COM_MAP()

    STDMETHODIMP AreLunsSupported(LONG c, LONG lContext, VSS_PWSZ* rgwsz, Lun* rg,
                                  BOOL* pb) override
    {
        *pb = TRUE;
        Say("AreLunsSupported", c, lContext, Texts(rgwsz, c), Texts(rg, c));
        return Rewrite(rg, c);
    }
    STDMETHODIMP FillInLunInfo(VSS_PWSZ wszName, Lun* pLun, BOOL* pb) override
    {
        *pb = TRUE;
        Say("FillInLunInfo", wszName, *pLun);
        return Rewrite(pLun, 1);
    }
    STDMETHODIMP BeginPrepareSnapshot(VSS_ID setId, VSS_ID id, LONG lContext, LONG c,
                                      VSS_PWSZ* rgwsz, Lun* rg) override
    {
        Say("BeginPrepareSnapshot", setId, id, lContext, c, Texts(rgwsz, c), Texts(rg, c));
        Rewrite(rg, c);
        return VSS_E_PROVIDER_VETO;
    }
    STDMETHODIMP GetTargetLuns(LONG c, VSS_PWSZ* rgwsz, Lun* rgSource, Lun* rgTarget) override
    {
        Say("GetTargetLuns", c, Texts(rgwsz, c), Texts(rgSource, c), Texts(rgTarget, c));
        return Rewrite(rgTarget, c);
    }
    STDMETHODIMP LocateLuns(LONG c, Lun* rg) override { return Say("LocateLuns", c, Texts(rg, c)); }
    STDMETHODIMP OnLunEmpty(VSS_PWSZ wszName, Lun* pLun) override
    {
        return Say("OnLunEmpty", wszName, *pLun);
    }
    STDMETHODIMP GetProviderCapabilities(ULONGLONG* pll) override
    {
        *pll = 0x0123456789ABCDEFull;
        return Say("GetProviderCapabilities");
    }
    STDMETHODIMP OnLunStateChange(Lun* rgA, Lun* rgB, DWORD c, DWORD dwFlags) override
    {
        return Say("OnLunStateChange", Texts(rgA, c), Texts(rgB, c), c, dwFlags);
    }
    // The object handed out is released by the stub, as IVssAsync does not cross.
    STDMETHODIMP ResyncLuns(Lun* rgA, Lun* rgB, DWORD c, IVssAsync** ppAsync) override
    {
        *ppAsync = reinterpret_cast<IVssAsync*>(CEcho::Create());
        return Say("ResyncLuns", Texts(rgA, c), Texts(rgB, c), c);
    }
    STDMETHODIMP OnReuseLuns(Lun* rgA, Lun* rgB, DWORD c) override
    {
        return Say("OnReuseLuns", Texts(rgA, c), Texts(rgB, c), c);
    }
    STDMETHODIMP EndPrepareSnapshots(VSS_ID id) override { return Say("EndPrepare", id); }
    STDMETHODIMP PreCommitSnapshots(VSS_ID id) override { return Say("PreCommit", id); }
    STDMETHODIMP CommitSnapshots(VSS_ID id) override { return Say("Commit", id); }
    STDMETHODIMP PostCommitSnapshots(VSS_ID id, LONG c) override
    {
        return Say("PostCommit", id, c);
    }
    STDMETHODIMP PreFinalCommitSnapshots(VSS_ID id) override { return Say("PreFinal", id); }
    STDMETHODIMP PostFinalCommitSnapshots(VSS_ID id) override { return Say("PostFinal", id); }
    STDMETHODIMP AbortSnapshots(VSS_ID id) override { return Say("Abort", id); }
    // Calls the callback, which lives in the client's process.
    STDMETHODIMP OnLoad(IUnknown* pCallback) override
    {
        CComPtr<ITestEcho> pEcho;
        LPWSTR pszEcho = nullptr;
        HRESULT hr = pCallback ? pCallback->QueryInterface(orvtest::com::IID_ITestEcho,
                                                           reinterpret_cast<void**>(&pEcho))
                               : E_POINTER;
        if (pEcho)
            hr = pEcho->Echo(W("loaded"), &pszEcho);
        Say("OnLoad", hr, pszEcho);
        CoTaskMemFree(pszEcho);
        return S_OK;
    }
    STDMETHODIMP OnUnload(BOOL fForce) override { return Say("OnUnload", fForce); }
    STDMETHODIMP SetInternalSnapshotName(GUID* pguid, BSTR bstrName) override
    {
        return Say("SetInternalSnapshotName", *pguid, orvtest::com::BstrText(bstrName));
    }
};

// Serves the class until the objects it made have all gone again.
int ServeEmbedded()
{
    using namespace orvtest::com;
    CComPtr<IClassFactory> pFactory;
    DWORD dwCookie = 0;
    if (FAILED(CComClassFactoryT<CEcho>::Create(&pFactory)) ||
        FAILED(CoRegisterClassObject(CLSID_TestEcho, pFactory, CLSCTX_LOCAL_SERVER,
                                     REGCLS_MULTIPLEUSE, &dwCookie)))
        return 4;
    std::unique_lock lock(g_lock);
    // Nobody may come: the server does not wait for ever.
    g_cvObjects.wait_for(lock, std::chrono::seconds(30), [] { return g_lCreated > 0; });
    g_cvObjects.wait(lock, [] { return g_lObjects == 0; });
    lock.unlock();
    CoRevokeClassObject(dwCookie);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 2;
    if (strcmp(argv[1], "embedded") == 0)
        return ServeEmbedded();
    if (strcmp(argv[1], "exit") == 0)
        return 0;
    if (strcmp(argv[1], "silent") == 0) {
        std::this_thread::sleep_for(std::chrono::seconds(5));
        return 0;
    }
    if (strcmp(argv[1], "serve") == 0) {
        g_fJournal = argc > 2 && strcmp(argv[2], "journal") == 0;
        CComPtr<IClassFactory> pEchoFactory, pProviderFactory;
        DWORD dwCookie = 0, dwProviderCookie = 0;
        if (FAILED(CComClassFactoryT<CEcho>::Create(&pEchoFactory)) ||
            FAILED(CoRegisterClassObject(orvtest::com::CLSID_TestEcho, pEchoFactory,
                                         CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &dwCookie)) ||
            FAILED(CComClassFactoryT<CTestProvider>::Create(&pProviderFactory)) ||
            FAILED(CoRegisterClassObject(orvtest::com::CLSID_TestProvider, pProviderFactory,
                                         CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                         &dwProviderCookie)))
            return 4;
        std::printf("ready\n");
        std::fflush(stdout);
        while (std::getchar() != EOF) {
        }
        CoRevokeClassObject(dwCookie);
        CoRevokeClassObject(dwProviderCookie);
        return 0;
    }
    CLSID clsid = orvtest::com::CLSID_TestEcho;
    IID iid = orvtest::com::IID_ITestEcho;
    if (argc > 3) {
        unsigned a[11] = {};
        if (std::sscanf(argv[3], "{%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}", &a[0], &a[1], &a[2],
                        &a[3], &a[4], &a[5], &a[6], &a[7], &a[8], &a[9], &a[10]) != 11)
            return 6;
        clsid = {a[0], static_cast<WORD>(a[1]), static_cast<WORD>(a[2]), {}};
        for (int i = 0; i < 8; ++i)
            clsid.Data4[i] = static_cast<BYTE>(a[3 + i]);
        iid = IID_IUnknown;
    }
    std::vector<IUnknown*> held;
    for (int i = 0; i < (argc > 2 ? atoi(argv[2]) : 1); ++i) {
        IUnknown* pObject = nullptr;
        if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_LOCAL_SERVER, iid,
                                    reinterpret_cast<void**>(&pObject))))
            return 5;
        held.push_back(pObject);
    }
    std::printf("held\n");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
