// The object helpers: smart pointer, object root and interface map, object wrappers, the
// module lock count, and the checked call with its COM error exception.
#include "tests/pal/com/com_testing.h"
#include "tests/support/paltest.h"

#include "pal/comdef.h"

#include <string>

namespace {

using orvtest::com::ComTest;
using orvtest::com::CWidget;

// Linux only: mingw-w64's __uuidof has no form for a const-qualified type.
TEST(ComIdsPal, UuidOfIgnoresQualifiers)
{
    EXPECT_TRUE(IsEqualIID(IID_IErrorInfo, __uuidof(const IErrorInfo)));
}

using ComObjectTest = ComTest;

TEST_F(ComObjectTest, CreateInstanceGivesCountZeroLastReleaseDestroysAndFailuresLeaveNothing)
{
    LONG lAlive = orvtest::com::g_lWidgetsAlive.load();
    LONG lLocks = AtlModuleGetLockCount();
    CComObject<CWidget>* p = nullptr;
    ASSERT_HR(S_OK, CComObject<CWidget>::CreateInstance(&p));
    EXPECT_EQ(lAlive + 1, orvtest::com::g_lWidgetsAlive.load());
    EXPECT_EQ(lLocks + 1, AtlModuleGetLockCount());
    EXPECT_EQ(1u, p->AddRef());
    EXPECT_EQ(2u, p->AddRef());
    EXPECT_EQ(1u, p->Release());
    EXPECT_EQ(0u, p->Release());
    EXPECT_EQ(lAlive, orvtest::com::g_lWidgetsAlive.load());
    EXPECT_EQ(lLocks, AtlModuleGetLockCount());

    p = reinterpret_cast<CComObject<CWidget>*>(0x1);
    orvtest::com::g_hrWidgetFinalConstruct = E_FAIL;
    EXPECT_HR(E_FAIL, CComObject<CWidget>::CreateInstance(&p));
    EXPECT_EQ(nullptr, p);
    EXPECT_EQ(lAlive, orvtest::com::g_lWidgetsAlive.load());
    orvtest::com::g_hrWidgetFinalConstruct = S_OK;
    pal::FailNothrowNewAt(1);
    EXPECT_HR(E_OUTOFMEMORY, CComObject<CWidget>::CreateInstance(&p));
    EXPECT_EQ(nullptr, p);
    EXPECT_HR(E_POINTER, CComObject<CWidget>::CreateInstance(nullptr));
}

TEST_F(ComObjectTest, InterfaceMapAnswersItsEntriesAndIdentityThroughTheFirst)
{
    CComObject<CWidget>* p = nullptr;
    ASSERT_HR(S_OK, CComObject<CWidget>::CreateInstance(&p));
    p->AddRef();
    IUnknown* pUnk = nullptr;
    ASSERT_HR(S_OK, p->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&pUnk)));
    EXPECT_EQ(static_cast<IUnknown*>(static_cast<IWidget*>(p)), pUnk);
    EXPECT_EQ(pUnk, p->GetUnknown());
    ISupportErrorInfo* pSupport = nullptr;
    ASSERT_HR(S_OK,
              pUnk->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(&pSupport)));
    EXPECT_EQ(static_cast<ISupportErrorInfo*>(p), pSupport);
    // Every interface leads back to the same identity.
    IUnknown* pUnk2 = nullptr;
    ASSERT_HR(S_OK, pSupport->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&pUnk2)));
    EXPECT_EQ(pUnk, pUnk2);
    void* pv = reinterpret_cast<void*>(0x1);
    EXPECT_HR(E_NOINTERFACE, pUnk->QueryInterface(IID_IClassFactory, &pv));
    EXPECT_EQ(nullptr, pv);
    EXPECT_HR(E_POINTER, pUnk->QueryInterface(IID_IUnknown, nullptr));
    pUnk2->Release();
    pSupport->Release();
    pUnk->Release();
    EXPECT_EQ(0u, p->Release());
}

TEST_F(ComObjectTest, ClassFactoryLocksTheModuleButDoesNotCountItself)
{
    LONG lLocks = AtlModuleGetLockCount();
    IClassFactory* pFactory = nullptr;
    ASSERT_HR(S_OK, CComClassFactoryT<CWidget>::Create(&pFactory));
    EXPECT_EQ(lLocks, AtlModuleGetLockCount());
    EXPECT_HR(S_OK, pFactory->LockServer(TRUE));
    EXPECT_EQ(lLocks + 1, AtlModuleGetLockCount());
    EXPECT_HR(S_OK, pFactory->LockServer(FALSE));
    EXPECT_EQ(lLocks, AtlModuleGetLockCount());
    void* pv = reinterpret_cast<void*>(0x1);
    EXPECT_HR(E_NOINTERFACE, pFactory->QueryInterface(IID_ICallFactory, &pv));
    EXPECT_EQ(nullptr, pv);
    EXPECT_HR(E_POINTER, pFactory->CreateInstance(nullptr, IID_IUnknown, nullptr));
    EXPECT_EQ(0u, pFactory->Release());
}

TEST_F(ComObjectTest, SmartPointerHoldsOneReference)
{
    CComObject<CWidget>* p = nullptr;
    ASSERT_HR(S_OK, CComObject<CWidget>::CreateInstance(&p));
    p->AddRef();
    auto count = [p] {
        p->AddRef();
        return p->Release();
    };
    {
        CComPtr<IWidget> a(p);
        EXPECT_EQ(2u, count());
        CComPtr<IWidget> b(a);
        EXPECT_EQ(3u, count());
        CComPtr<IWidget> c(std::move(b));
        EXPECT_EQ(3u, count());
        EXPECT_EQ(nullptr, static_cast<IWidget*>(b));
        c = nullptr;
        EXPECT_EQ(2u, count());
        CComPtr<ISupportErrorInfo> pSupport;
        EXPECT_HR(S_OK, a.QueryInterface(&pSupport));
        EXPECT_EQ(3u, count());
        IWidget* pRaw = nullptr;
        EXPECT_HR(S_OK, a.CopyTo(&pRaw));
        EXPECT_EQ(4u, count());
        CComPtr<IWidget> d;
        d.Attach(pRaw);
        EXPECT_EQ(4u, count());
        IWidget* pDetached = d.Detach();
        EXPECT_EQ(nullptr, static_cast<IWidget*>(d));
        pDetached->Release();
        // Taking the address for an out parameter empties the pointer first.
        CComPtr<IWidget> e(p);
        EXPECT_EQ(4u, count());
        IWidget** pp = &e;
        EXPECT_EQ(nullptr, *pp);
        EXPECT_EQ(3u, count());
    }
    EXPECT_EQ(0u, p->Release());
}

TEST_F(ComObjectTest, CheckedCallReturnsSuccessAndRaisesFailuresWithTheErrorObject)
{
    CComObject<CWidget>* p = nullptr;
    ASSERT_HR(S_OK, CComObject<CWidget>::CreateInstance(&p));
    CComPtr<IWidget> pWidget(p);
    LONG lAlive = 0;
    EXPECT_HR(S_OK, pWidget.Invoke(&IWidget::Ping, S_OK, &lAlive));
    EXPECT_GT(lAlive, 0);
    try {
        pWidget.Invoke(&IWidget::Ping, E_ACCESSDENIED, &lAlive);
        FAIL() << "no exception";
    } catch (const _com_error& e) {
        EXPECT_HR(E_ACCESSDENIED, e.Error());
        BSTR bstrDescription = e.Description();
        BSTR bstrSource = e.Source();
        ASSERT_NE(nullptr, bstrDescription);
        EXPECT_EQ(W("widget failed"), orvtest::WString(bstrDescription));
        EXPECT_EQ(W("Widget"), orvtest::WString(bstrSource));
        SysFreeString(bstrDescription);
        SysFreeString(bstrSource);
    }
    // The exception took the thread's error object.
    IErrorInfo* pInfo = reinterpret_cast<IErrorInfo*>(0x1);
    EXPECT_HR(S_FALSE, GetErrorInfo(0, &pInfo));
    EXPECT_EQ(nullptr, pInfo);

    // An empty pointer raises E_POINTER, with no error object.
    pWidget.Release();
    try {
        pWidget.Invoke(&IWidget::Ping, S_OK, &lAlive);
        FAIL() << "no exception";
    } catch (const _com_error& e) {
        EXPECT_HR(E_POINTER, e.Error());
        EXPECT_EQ(nullptr, e.Description());
        EXPECT_EQ(nullptr, e.ErrorInfo());
    }
}

TEST_F(ComObjectTest, ComErrorCopiesShareTheErrorObject)
{
    ICreateErrorInfo* pCreate = nullptr;
    ASSERT_HR(S_OK, CreateErrorInfo(&pCreate));
    IErrorInfo* pInfo = nullptr;
    ASSERT_HR(S_OK, pCreate->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&pInfo)));
    pCreate->Release();
    {
        _com_error first(E_FAIL, pInfo, true);
        _com_error second(first);
        _com_error third(S_OK);
        third = second;
        EXPECT_HR(E_FAIL, third.Error());
        IErrorInfo* pHeld = third.ErrorInfo();
        EXPECT_EQ(pInfo, pHeld);
        // Ours, the three exceptions' and pHeld's.
        EXPECT_EQ(5u, pInfo->Release() + 1);
        pInfo->AddRef();
        pHeld->Release();
    }
    EXPECT_EQ(0u, pInfo->Release());
}

} // namespace
