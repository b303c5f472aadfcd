// The COM runtime's suspension of class objects and injected activation faults; the cases that
// need no test controls are in conformance/activation_test.cpp.
#include "tests/pal/com/com_testing.h"
#include "tests/support/paltest.h"

namespace {

using orvtest::com::CLSID_TestWidget;
using orvtest::com::ComTest;
using orvtest::com::CreateWidget;
using orvtest::com::ScopedRegistration;

// {0D8B3A55-1111-4A5A-8C8C-000000000001}: registered by nobody.
constexpr CLSID CLSID_Nobody = {
    0x0D8B3A55, 0x1111, 0x4A5A, {0x8C, 0x8C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}};

// Creates through the registration and releases what it got.
HRESULT CreateAndRelease(DWORD dwContext)
{
    IWidget* pWidget = nullptr;
    HRESULT hr = CreateWidget(dwContext, &pWidget);
    if (SUCCEEDED(hr))
        pWidget->Release();
    return hr;
}

// Linux only: Wine accepts a reserved pointer, and leaves the cookie of a registration refused
// for want of an apartment as it was.
using ComApartmentArgumentsTest = orvtest::PalTest;

TEST_F(ComApartmentArgumentsTest, BadArgumentsAndARefusedRegistrationsCookie)
{
    int reserved = 0;
    EXPECT_HR(E_INVALIDARG, CoInitializeEx(&reserved, COINIT_MULTITHREADED));
    EXPECT_HR(E_INVALIDARG, CoInitializeEx(nullptr, 0x100));
    DWORD dwCookie = 7;
    EXPECT_HR(CO_E_NOTINITIALIZED,
              CoRegisterClassObject(CLSID_TestWidget, reinterpret_cast<IUnknown*>(&dwCookie),
                                    CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &dwCookie));
    EXPECT_EQ(0u, dwCookie);
}

using ComSuspensionTest = ComTest;
// Linux only: Wine's class table differs from Windows' and from the pal's here (a request for a
// class nobody registered, or of a remote server, goes to its rpcss, which takes seconds; class
// contexts 0 and 0x1000 give E_UNEXPECTED; a revoked cookie gives E_INVALIDARG; a single-use
// registration serves more than once), and these cases assert the pal's model of Windows.
using ComClassTableTest = ComTest;

TEST_F(ComClassTableTest, ArgumentsAndUnknownClassesAreRefused)
{
    IWidget* pWidget = nullptr;
    for (DWORD dwContext :
         {DWORD(CLSCTX_INPROC_SERVER), DWORD(CLSCTX_LOCAL_SERVER), DWORD(CLSCTX_ALL)})
        EXPECT_HR(REGDB_E_CLASSNOTREG, CreateWidget(dwContext, &pWidget, CLSID_Nobody));
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    EXPECT_HR(E_POINTER,
              CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_ALL, IID_IUnknown, nullptr));
    EXPECT_HR(E_INVALIDARG, CreateWidget(0, &pWidget));
    EXPECT_HR(E_INVALIDARG, CreateWidget(0x1000, &pWidget));
}

TEST_F(ComClassTableTest, RequestIsServedOnlyByAMatchingRegistration)
{
    const struct
    {
        const char* name;
        DWORD dwRegContext, dwRegFlags, dwRequest;
        HRESULT hrExpected;
    } cases[] = {
        {"local to local", CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, CLSCTX_LOCAL_SERVER, S_OK},
        {"local to all", CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, CLSCTX_ALL, S_OK},
        // A multiple-use local server is registered as an in-process server too.
        {"multiple-use local in-process", CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
         CLSCTX_INPROC_SERVER, S_OK},
        {"separate local not in-process", CLSCTX_LOCAL_SERVER, REGCLS_MULTI_SEPARATE,
         CLSCTX_INPROC_SERVER, REGDB_E_CLASSNOTREG},
        {"in-process not to local", CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, CLSCTX_LOCAL_SERVER,
         REGDB_E_CLASSNOTREG},
        {"in-process to in-process", CLSCTX_INPROC_SERVER, REGCLS_MULTI_SEPARATE,
         CLSCTX_INPROC_SERVER, S_OK},
        {"local to remote request", CLSCTX_LOCAL_SERVER, REGCLS_MULTI_SEPARATE,
         CLSCTX_REMOTE_SERVER, S_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ScopedRegistration reg;
        ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, c.dwRegContext, c.dwRegFlags));
        EXPECT_HR(c.hrExpected, CreateAndRelease(c.dwRequest));
    }
}

TEST_F(ComClassTableTest, GetClassObjectHandsOutTheRegisteredObjectUntilRevoked)
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
    // Revoking gave back the table's reference, and the cookie went with it.
    EXPECT_EQ(2u, pRegistered->AddRef());
    pRegistered->Release();
    EXPECT_HR(CO_E_OBJNOTREG, CoRevokeClassObject(dwCookie));
    EXPECT_HR(REGDB_E_CLASSNOTREG, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    EXPECT_EQ(0u, pRegistered->Release());
}

TEST_F(ComClassTableTest, RegistrationArgumentsAreChecked)
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

TEST_F(ComClassTableTest, RegistrationsAreIndependentAndASingleUseOneServesOneRequest)
{
    ScopedRegistration first, second;
    ASSERT_HR(S_OK, first.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    ASSERT_HR(S_OK, second.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    EXPECT_NE(first.Cookie(), second.Cookie());
    first.Revoke();
    EXPECT_HR(S_OK, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    second.Revoke();

    ScopedRegistration single;
    ASSERT_HR(S_OK, single.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_SINGLEUSE));
    EXPECT_HR(S_OK, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    EXPECT_HR(REGDB_E_CLASSNOTREG, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    // Its registration still has to be revoked, and can be.
    EXPECT_HR(S_OK, CoRevokeClassObject(single.Cookie()));
}

TEST_F(ComSuspensionTest, SuspendedLocalServerIsStoppingUntilResumed)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    EXPECT_HR(S_OK, CoSuspendClassObjects());
    EXPECT_HR(CO_E_SERVER_STOPPING, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    // Suspension stops requests of the service control manager only: in-process ones go on.
    EXPECT_HR(S_OK, CreateAndRelease(CLSCTX_INPROC_SERVER));
    EXPECT_HR(S_OK, CoResumeClassObjects());
    EXPECT_HR(S_OK, CreateAndRelease(CLSCTX_LOCAL_SERVER));

    // The last release of the server process suspends as well.
    EXPECT_EQ(1u, CoAddRefServerProcess());
    EXPECT_EQ(2u, CoAddRefServerProcess());
    EXPECT_EQ(1u, CoReleaseServerProcess());
    EXPECT_HR(S_OK, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    EXPECT_EQ(0u, CoReleaseServerProcess());
    EXPECT_HR(CO_E_SERVER_STOPPING, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    EXPECT_HR(S_OK, CoResumeClassObjects());

    // A class registered suspended waits for the resume.
    reg.Revoke();
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER,
                                 REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED));
    EXPECT_HR(CO_E_SERVER_STOPPING, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    EXPECT_HR(S_OK, CoResumeClassObjects());
    EXPECT_HR(S_OK, CreateAndRelease(CLSCTX_LOCAL_SERVER));
}

TEST_F(ComSuspensionTest, InjectedFaultsAreReturned)
{
    ScopedRegistration reg;
    ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    pal::InjectFault("CoCreateInstance", DWORD(E_ACCESSDENIED), 1, orvtest::com::kTestWidgetClsid);
    EXPECT_HR(E_ACCESSDENIED, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    EXPECT_HR(S_OK, CreateAndRelease(CLSCTX_LOCAL_SERVER));
    EXPECT_EQ(1u, pal::FaultHits("CoCreateInstance"));
}

} // namespace
