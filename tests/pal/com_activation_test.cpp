// The COM runtime: apartments, class object registration, activation by class context,
// suspension and revocation.
#include "tests/pal/com_testing.h"

#include <vector>

namespace {

using orvtest::com::CLSID_TestWidget;
using orvtest::com::ComTest;
using orvtest::com::ScopedRegistration;

// {0D8B3A55-1111-4A5A-8C8C-000000000001}: registered by nobody.
constexpr CLSID CLSID_Nobody = {
    0x0D8B3A55, 0x1111, 0x4A5A, {0x8C, 0x8C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}};

HRESULT Create(DWORD dwContext, IWidget** ppWidget)
{
    *ppWidget = reinterpret_cast<IWidget*>(0x1); // must be overwritten on every path
    return CoCreateInstance(CLSID_TestWidget, nullptr, dwContext, __uuidof(IWidget),
                            reinterpret_cast<void**>(ppWidget));
}

class ComApartmentTest : public orvtest::PalTest
{};

TEST_F(ComApartmentTest, InitializeCountsPerThreadAndRefusesTheOtherModel)
{
    EXPECT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    EXPECT_HR(S_FALSE, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    EXPECT_HR(RPC_E_CHANGED_MODE, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    EXPECT_HR(RPC_E_CHANGED_MODE, CoInitialize(nullptr));
    CoUninitialize();
    CoUninitialize();
    // Fully left: the other model is accepted now.
    EXPECT_HR(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    CoUninitialize();
    // A further CoUninitialize is harmless.
    CoUninitialize();
}

TEST_F(ComApartmentTest, InitializeRejectsReservedArgumentAndUnknownFlags)
{
    int reserved = 0;
    EXPECT_HR(E_INVALIDARG, CoInitializeEx(&reserved, COINIT_MULTITHREADED));
    EXPECT_HR(E_INVALIDARG, CoInitializeEx(nullptr, 0x100));
}

TEST_F(ComApartmentTest, ActivationNeedsAnApartment)
{
    IUnknown* pUnk = reinterpret_cast<IUnknown*>(0x1);
    EXPECT_HR(CO_E_NOTINITIALIZED, CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_ALL,
                                                    IID_IUnknown, reinterpret_cast<void**>(&pUnk)));
    EXPECT_EQ(nullptr, pUnk);
    DWORD dwCookie = 7;
    EXPECT_HR(CO_E_NOTINITIALIZED,
              CoRegisterClassObject(CLSID_TestWidget, reinterpret_cast<IUnknown*>(&dwCookie),
                                    CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &dwCookie));
    EXPECT_EQ(0u, dwCookie);
}

using ComActivationTest = ComTest;

TEST_F(ComActivationTest, UnknownClassIsNotRegistered)
{
    IUnknown* pUnk = reinterpret_cast<IUnknown*>(0x1);
    for (DWORD dwContext :
         {DWORD(CLSCTX_INPROC_SERVER), DWORD(CLSCTX_LOCAL_SERVER), DWORD(CLSCTX_ALL)}) {
        EXPECT_HR(REGDB_E_CLASSNOTREG,
                  CoCreateInstance(CLSID_Nobody, nullptr, dwContext, IID_IUnknown,
                                   reinterpret_cast<void**>(&pUnk)));
        EXPECT_EQ(nullptr, pUnk);
    }
}

TEST_F(ComActivationTest, ArgumentsAreChecked)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    EXPECT_HR(E_POINTER,
              CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_ALL, IID_IUnknown, nullptr));
    IWidget* pWidget = nullptr;
    EXPECT_HR(E_INVALIDARG, Create(0, &pWidget));
    EXPECT_EQ(nullptr, pWidget);
    EXPECT_HR(E_INVALIDARG, Create(0x1000, &pWidget));
    EXPECT_EQ(nullptr, pWidget);
}

// Which requested contexts a registration serves.
struct ContextCase
{
    const char* name;
    DWORD dwRegContext;
    DWORD dwRegFlags;
    DWORD dwRequest;
    HRESULT hrExpected;
};

class ComContextTest : public ComTest, public ::testing::WithParamInterface<ContextCase>
{};

TEST_P(ComContextTest, RequestIsServedOnlyByAMatchingRegistration)
{
    const ContextCase& c = GetParam();
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, c.dwRegContext, c.dwRegFlags));
    IWidget* pWidget = nullptr;
    EXPECT_HR(c.hrExpected, Create(c.dwRequest, &pWidget));
    EXPECT_EQ(SUCCEEDED(c.hrExpected), pWidget != nullptr);
    if (pWidget)
        pWidget->Release();
}

INSTANTIATE_TEST_SUITE_P(
    Contexts, ComContextTest,
    ::testing::Values(ContextCase{"LocalServedToLocal", CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                  CLSCTX_LOCAL_SERVER, S_OK},
                      ContextCase{"LocalServedToAll", CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                  CLSCTX_ALL, S_OK},
                      // A multiple-use local server is registered as an in-process server too.
                      ContextCase{"MultipleUseLocalServedInproc", CLSCTX_LOCAL_SERVER,
                                  REGCLS_MULTIPLEUSE, CLSCTX_INPROC_SERVER, S_OK},
                      ContextCase{"SeparateLocalNotServedInproc", CLSCTX_LOCAL_SERVER,
                                  REGCLS_MULTI_SEPARATE, CLSCTX_INPROC_SERVER, REGDB_E_CLASSNOTREG},
                      ContextCase{"InprocNotServedToLocal", CLSCTX_INPROC_SERVER,
                                  REGCLS_MULTIPLEUSE, CLSCTX_LOCAL_SERVER, REGDB_E_CLASSNOTREG},
                      ContextCase{"InprocServedInproc", CLSCTX_INPROC_SERVER, REGCLS_MULTI_SEPARATE,
                                  CLSCTX_INPROC_SERVER, S_OK},
                      ContextCase{"LocalServedToRemoteRequest", CLSCTX_LOCAL_SERVER,
                                  REGCLS_MULTI_SEPARATE, CLSCTX_REMOTE_SERVER, S_OK}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ComActivationTest, ObjectIsCreatedThroughTheClassFactory)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    LONG lBefore = orvtest::com::g_lWidgetsAlive.load();
    CComPtr<IWidget> pWidget;
    ASSERT_HR(S_OK, pWidget.CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_LOCAL_SERVER));
    LONG lAlive = 0;
    EXPECT_HR(S_OK, pWidget->Ping(S_OK, &lAlive));
    EXPECT_EQ(lBefore + 1, lAlive);
    pWidget.Release();
    EXPECT_EQ(lBefore, orvtest::com::g_lWidgetsAlive.load());
}

TEST_F(ComActivationTest, FactoryFailuresReachTheCaller)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    IUnknown* pUnk = reinterpret_cast<IUnknown*>(0x1);
    IUnknown* pOuter = reinterpret_cast<IUnknown*>(0x2);
    EXPECT_HR(CLASS_E_NOAGGREGATION,
              CoCreateInstance(CLSID_TestWidget, pOuter, CLSCTX_LOCAL_SERVER, IID_IUnknown,
                               reinterpret_cast<void**>(&pUnk)));
    EXPECT_EQ(nullptr, pUnk);
    pUnk = reinterpret_cast<IUnknown*>(0x1);
    EXPECT_HR(E_NOINTERFACE, CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_LOCAL_SERVER,
                                              IID_IClassFactory, reinterpret_cast<void**>(&pUnk)));
    EXPECT_EQ(nullptr, pUnk);
    LONG lBefore = orvtest::com::g_lWidgetsAlive.load();
    orvtest::com::g_hrWidgetFinalConstruct = E_ACCESSDENIED;
    EXPECT_HR(E_ACCESSDENIED, CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_LOCAL_SERVER,
                                               IID_IUnknown, reinterpret_cast<void**>(&pUnk)));
    EXPECT_EQ(nullptr, pUnk);
    EXPECT_EQ(lBefore, orvtest::com::g_lWidgetsAlive.load());
}

TEST_F(ComActivationTest, GetClassObjectHandsOutTheRegisteredObject)
{
    IClassFactory* pRegistered = nullptr;
    ASSERT_HR(S_OK, CComClassFactoryT<orvtest::com::CWidget>::Create(&pRegistered));
    DWORD dwCookie = 0;
    ASSERT_HR(S_OK, CoRegisterClassObject(CLSID_TestWidget, pRegistered, CLSCTX_LOCAL_SERVER,
                                          REGCLS_MULTIPLEUSE, &dwCookie));
    EXPECT_NE(0u, dwCookie);
    IClassFactory* pFactory = nullptr;
    ASSERT_HR(S_OK, CoGetClassObject(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, nullptr,
                                     IID_IClassFactory, reinterpret_cast<void**>(&pFactory)));
    EXPECT_EQ(pRegistered, pFactory);
    // The creator's, the table's and this one.
    EXPECT_EQ(2u, pFactory->Release());
    EXPECT_HR(S_OK, CoRevokeClassObject(dwCookie));
    // Revoking gave back the table's reference.
    EXPECT_EQ(0u, pRegistered->Release());
}

TEST_F(ComActivationTest, RevokedClassIsGoneAndItsCookieWithIt)
{
    IClassFactory* pFactory = nullptr;
    ASSERT_HR(S_OK, CComClassFactoryT<orvtest::com::CWidget>::Create(&pFactory));
    DWORD dwCookie = 0;
    ASSERT_HR(S_OK, CoRegisterClassObject(CLSID_TestWidget, pFactory, CLSCTX_LOCAL_SERVER,
                                          REGCLS_MULTIPLEUSE, &dwCookie));
    EXPECT_EQ(3u, pFactory->AddRef());
    pFactory->Release();
    EXPECT_HR(S_OK, CoRevokeClassObject(dwCookie));
    EXPECT_EQ(2u, pFactory->AddRef());
    pFactory->Release();
    EXPECT_HR(CO_E_OBJNOTREG, CoRevokeClassObject(dwCookie));
    IWidget* pWidget = nullptr;
    EXPECT_HR(REGDB_E_CLASSNOTREG, Create(CLSCTX_LOCAL_SERVER, &pWidget));
    EXPECT_EQ(0u, pFactory->Release());
}

TEST_F(ComActivationTest, RegistrationArgumentsAreChecked)
{
    IClassFactory* pFactory = nullptr;
    ASSERT_HR(S_OK, CComClassFactoryT<orvtest::com::CWidget>::Create(&pFactory));
    DWORD dwCookie = 5;
    EXPECT_HR(E_INVALIDARG, CoRegisterClassObject(CLSID_TestWidget, pFactory, CLSCTX_LOCAL_SERVER,
                                                  REGCLS_MULTIPLEUSE, nullptr));
    EXPECT_HR(E_INVALIDARG, CoRegisterClassObject(CLSID_TestWidget, nullptr, CLSCTX_LOCAL_SERVER,
                                                  REGCLS_MULTIPLEUSE, &dwCookie));
    EXPECT_EQ(0u, dwCookie);
    EXPECT_HR(E_INVALIDARG,
              CoRegisterClassObject(CLSID_TestWidget, pFactory, 0, REGCLS_MULTIPLEUSE, &dwCookie));
    // No failed registration kept a reference.
    EXPECT_EQ(0u, pFactory->Release());
}

TEST_F(ComActivationTest, RegistrationsOfOneClassAreIndependent)
{
    ScopedRegistration first, second;
    ASSERT_HR(S_OK, first.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    ASSERT_HR(S_OK, second.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    EXPECT_NE(first.Cookie(), second.Cookie());
    first.Revoke();
    CComPtr<IWidget> pWidget;
    EXPECT_HR(S_OK, pWidget.CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_LOCAL_SERVER));
}

TEST_F(ComActivationTest, SingleUseClassServesOneRequest)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_SINGLEUSE));
    CComPtr<IWidget> pWidget;
    EXPECT_HR(S_OK, pWidget.CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_LOCAL_SERVER));
    IWidget* pSecond = nullptr;
    EXPECT_HR(REGDB_E_CLASSNOTREG, Create(CLSCTX_LOCAL_SERVER, &pSecond));
    EXPECT_EQ(nullptr, pSecond);
    // Its registration still has to be revoked, and can be.
    EXPECT_HR(S_OK, CoRevokeClassObject(reg.Cookie()));
}

TEST_F(ComActivationTest, SuspendedLocalServerIsStoppingUntilResumed)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    EXPECT_HR(S_OK, CoSuspendClassObjects());
    IWidget* pWidget = nullptr;
    EXPECT_HR(CO_E_SERVER_STOPPING, Create(CLSCTX_LOCAL_SERVER, &pWidget));
    EXPECT_EQ(nullptr, pWidget);
    // Suspension stops requests of the service control manager only: in-process ones go on.
    EXPECT_HR(S_OK, Create(CLSCTX_INPROC_SERVER, &pWidget));
    pWidget->Release();
    EXPECT_HR(S_OK, CoResumeClassObjects());
    EXPECT_HR(S_OK, Create(CLSCTX_LOCAL_SERVER, &pWidget));
    pWidget->Release();
}

TEST_F(ComActivationTest, ClassRegisteredSuspendedWaitsForResume)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER,
                                 REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED));
    IWidget* pWidget = nullptr;
    EXPECT_HR(CO_E_SERVER_STOPPING, Create(CLSCTX_LOCAL_SERVER, &pWidget));
    EXPECT_HR(S_OK, CoResumeClassObjects());
    EXPECT_HR(S_OK, Create(CLSCTX_LOCAL_SERVER, &pWidget));
    pWidget->Release();
}

TEST_F(ComActivationTest, LastServerProcessReleaseSuspends)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    EXPECT_EQ(1u, CoAddRefServerProcess());
    EXPECT_EQ(2u, CoAddRefServerProcess());
    EXPECT_EQ(1u, CoReleaseServerProcess());
    IWidget* pWidget = nullptr;
    EXPECT_HR(S_OK, Create(CLSCTX_LOCAL_SERVER, &pWidget));
    pWidget->Release();
    EXPECT_EQ(0u, CoReleaseServerProcess());
    EXPECT_HR(CO_E_SERVER_STOPPING, Create(CLSCTX_LOCAL_SERVER, &pWidget));
}

TEST_F(ComActivationTest, InjectedFaultsAreReturned)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    pal::InjectFault("CoCreateInstance", DWORD(E_ACCESSDENIED), 1, orvtest::com::kTestWidgetClsid);
    IWidget* pWidget = nullptr;
    EXPECT_HR(E_ACCESSDENIED, Create(CLSCTX_LOCAL_SERVER, &pWidget));
    EXPECT_EQ(nullptr, pWidget);
    EXPECT_HR(S_OK, Create(CLSCTX_LOCAL_SERVER, &pWidget));
    pWidget->Release();
    EXPECT_EQ(1u, pal::FaultHits("CoCreateInstance"));
}

TEST(ComGuidText, StringFromGuidIsRegistryForm)
{
    WCHAR sz[39];
    EXPECT_EQ(39, StringFromGUID2(CLSID_TestWidget, sz, 39));
    EXPECT_EQ(std::u16string(orvtest::com::kTestWidgetClsid), std::u16string(sz));
    EXPECT_EQ(0, StringFromGUID2(CLSID_TestWidget, sz, 38));
}

} // namespace
