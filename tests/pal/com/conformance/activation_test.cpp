// The COM runtime: apartments, activation through a registered class object, GUID text.
#include "tests/pal/com/com_testing.h"

#include <string>

namespace {

using orvtest::com::CLSID_TestWidget;
using orvtest::com::ComTest;
using orvtest::com::CreateWidget;
using orvtest::com::ScopedRegistration;

using ComApartmentTest = orvtest::ConformanceTest;

TEST_F(ComApartmentTest, InitializeCountsPerThreadAndRefusesTheOtherModel)
{
    EXPECT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    EXPECT_HR(S_FALSE, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    EXPECT_HR(RPC_E_CHANGED_MODE, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    EXPECT_HR(RPC_E_CHANGED_MODE, CoInitialize(nullptr));
    CoUninitialize();
    CoUninitialize();
    // Fully left: the other model is accepted now, and a further CoUninitialize is harmless.
    EXPECT_HR(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    CoUninitialize();
    CoUninitialize();
}

TEST_F(ComApartmentTest, ActivationNeedsAnApartment)
{
    IWidget* pWidget = nullptr;
    EXPECT_HR(CO_E_NOTINITIALIZED, CreateWidget(CLSCTX_ALL, &pWidget));
    DWORD dwCookie = 7;
    EXPECT_HR(CO_E_NOTINITIALIZED,
              CoRegisterClassObject(CLSID_TestWidget, reinterpret_cast<IUnknown*>(&dwCookie),
                                    CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &dwCookie));
}

using ComActivationTest = ComTest;

TEST_F(ComActivationTest, ObjectIsCreatedThroughTheClassFactoryWhoseFailuresReachTheCaller)
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

    IWidget* p = nullptr;
    EXPECT_HR(CLASS_E_NOAGGREGATION, CreateWidget(CLSCTX_LOCAL_SERVER, &p, CLSID_TestWidget,
                                                  IID_IUnknown, reinterpret_cast<IUnknown*>(0x2)));
    EXPECT_HR(E_NOINTERFACE,
              CreateWidget(CLSCTX_LOCAL_SERVER, &p, CLSID_TestWidget, IID_IClassFactory));
    orvtest::com::g_hrWidgetFinalConstruct = E_ACCESSDENIED;
    EXPECT_HR(E_ACCESSDENIED, CreateWidget(CLSCTX_LOCAL_SERVER, &p));
    EXPECT_EQ(lBefore, orvtest::com::g_lWidgetsAlive.load());
}

TEST_F(ComActivationTest, GuidTextIsTheRegistryForm)
{
    WCHAR sz[39];
    EXPECT_EQ(39, StringFromGUID2(CLSID_TestWidget, sz, 39));
    EXPECT_EQ(orvtest::WString(orvtest::com::kTestWidgetClsid), orvtest::WString(sz));
    EXPECT_EQ(0, StringFromGUID2(CLSID_TestWidget, sz, 38));
}

} // namespace
