// Shared pieces of the COM runtime tests: a fixture that joins the multithreaded apartment, and
// a small test class served through a class factory.
#pragma once

#include "pal/atlcom.h"
#include "pal/objbase.h"
#include "tests/support/conformance.h"

#include <gtest/gtest.h>

#include <atomic>

namespace orvtest::com {

// {5B1E6C0A-7D3F-4E21-9A4B-0C1D2E3F4A51}
inline constexpr CLSID CLSID_TestWidget = {
    0x5B1E6C0A, 0x7D3F, 0x4E21, {0x9A, 0x4B, 0x0C, 0x1D, 0x2E, 0x3F, 0x4A, 0x51}};
inline constexpr const WCHAR* kTestWidgetClsid = W("{5B1E6C0A-7D3F-4E21-9A4B-0C1D2E3F4A51}");
// {5B1E6C0A-7D3F-4E21-9A4B-0C1D2E3F4A52}
inline constexpr IID IID_IWidget = {
    0x5B1E6C0A, 0x7D3F, 0x4E21, {0x9A, 0x4B, 0x0C, 0x1D, 0x2E, 0x3F, 0x4A, 0x52}};
// {5B1E6C0A-7D3F-4E21-9A4B-0C1D2E3F4A53}
inline constexpr IID IID_IWidgetEvents = {
    0x5B1E6C0A, 0x7D3F, 0x4E21, {0x9A, 0x4B, 0x0C, 0x1D, 0x2E, 0x3F, 0x4A, 0x53}};

} // namespace orvtest::com

interface IWidget : public IUnknown
{
    // Succeeds with the number of widgets alive; with a failure code, fails with it and leaves
    // an error object whose description is "widget failed".
    STDMETHOD(Ping)(HRESULT hrToReturn, LONG* plAlive) PURE;

protected:
    ~IWidget() = default;
};
PAL_DEFINE_UUIDOF(IWidget, orvtest::com::IID_IWidget);

interface IWidgetEvents : public IUnknown
{
    STDMETHOD(OnPing)(LONG lValue) PURE;

protected:
    ~IWidgetEvents() = default;
};
PAL_DEFINE_UUIDOF(IWidgetEvents, orvtest::com::IID_IWidgetEvents);

namespace orvtest::com {

inline std::atomic<LONG> g_lWidgetsAlive{0};
inline std::atomic<HRESULT> g_hrWidgetFinalConstruct{S_OK};

class CWidget : public CComObjectRootEx<CComMultiThreadModel>,
                public IWidget,
                public ISupportErrorInfo
{
public:
    DECLARE_NO_REGISTRY()
    BEGIN_COM_MAP(CWidget)
    COM_INTERFACE_ENTRY(IWidget)
    COM_INTERFACE_ENTRY(ISupportErrorInfo)
    END_COM_MAP()

    CWidget() { ++g_lWidgetsAlive; }
    ~CWidget() { --g_lWidgetsAlive; }
    HRESULT FinalConstruct() { return g_hrWidgetFinalConstruct.load(); }

    STDMETHODIMP Ping(HRESULT hrToReturn, LONG* plAlive) override
    {
        if (FAILED(hrToReturn)) {
            ICreateErrorInfo* pCreate = nullptr;
            if (SUCCEEDED(CreateErrorInfo(&pCreate))) {
                WCHAR szSource[] = W("Widget");
                WCHAR szDescription[] = W("widget failed");
                pCreate->SetSource(szSource);
                pCreate->SetDescription(szDescription);
                IErrorInfo* pInfo = nullptr;
                pCreate->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&pInfo));
                SetErrorInfo(0, pInfo);
                pInfo->Release();
                pCreate->Release();
            }
            return hrToReturn;
        }
        *plAlive = g_lWidgetsAlive.load();
        return S_OK;
    }
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override
    {
        return IsEqualIID(riid, IID_IWidget) ? S_OK : S_FALSE;
    }
};

// Joins the multithreaded apartment for the test's thread; it builds for both platforms, for
// the conformance cases.
class ComTest : public orvtest::ConformanceTest
{
protected:
    void SetUp() override
    {
        orvtest::ConformanceTest::SetUp();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        g_hrWidgetFinalConstruct = S_OK;
    }
    void TearDown() override
    {
        // Suspension is process-wide; the next test starts with active class objects.
        CoResumeClassObjects();
        CoUninitialize();
        orvtest::ConformanceTest::TearDown();
    }
};

// Creates a widget with `pOuter` and `riid`; checks that a failure leaves a null out pointer.
inline HRESULT CreateWidget(DWORD dwContext, IWidget** ppWidget, REFCLSID rclsid = CLSID_TestWidget,
                            REFIID riid = __uuidof(IWidget), IUnknown* pOuter = nullptr)
{
    *ppWidget = reinterpret_cast<IWidget*>(0x1); // must be overwritten on every path
    HRESULT hr =
        CoCreateInstance(rclsid, pOuter, dwContext, riid, reinterpret_cast<void**>(ppWidget));
    if (FAILED(hr)) {
        EXPECT_EQ(nullptr, *ppWidget);
    }
    return hr;
}

// A class object registration revoked at scope exit.
class ScopedRegistration
{
public:
    ScopedRegistration() = default;
    ScopedRegistration(const ScopedRegistration&) = delete;
    ScopedRegistration& operator=(const ScopedRegistration&) = delete;
    ~ScopedRegistration() { Revoke(); }
    HRESULT Register(REFCLSID rclsid, DWORD dwContext, DWORD dwFlags)
    {
        IClassFactory* pFactory = nullptr;
        HRESULT hr = CComClassFactoryT<CWidget>::Create(&pFactory);
        if (FAILED(hr))
            return hr;
        hr = CoRegisterClassObject(rclsid, pFactory, dwContext, dwFlags, &m_dwCookie);
        pFactory->Release();
        return hr;
    }
    void Revoke()
    {
        if (m_dwCookie)
            CoRevokeClassObject(m_dwCookie);
        m_dwCookie = 0;
    }
    DWORD Cookie() const { return m_dwCookie; }

private:
    DWORD m_dwCookie = 0;
};

} // namespace orvtest::com
