// ITestEcho, the small interface that the out-of-process tests call in another process, with
// its marshaler (what a proxy/stub DLL would register), shared by the test and its server.
#pragma once

#include "pal/atlcom.h"
#include "pal/objbase.h"
#include "pal/src/com/rpc/describe.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>

namespace orvtest::com {
// {6A2F7C1B-8E40-4F32-AB5C-1D2E3F405162}
inline constexpr CLSID CLSID_TestEcho = {
    0x6A2F7C1B, 0x8E40, 0x4F32, {0xAB, 0x5C, 0x1D, 0x2E, 0x3F, 0x40, 0x51, 0x62}};
// {6A2F7C1B-8E40-4F32-AB5C-1D2E3F405163}
inline constexpr IID IID_ITestEcho = {
    0x6A2F7C1B, 0x8E40, 0x4F32, {0xAB, 0x5C, 0x1D, 0x2E, 0x3F, 0x40, 0x51, 0x63}};
} // namespace orvtest::com

interface ITestEcho : public IUnknown
{
    // The text back in a task block; E_POINTER for a null text.
    STDMETHOD(Echo)(LPCWSTR pszText, LPWSTR* ppszEcho) PURE;

protected:
    ~ITestEcho() = default;
};
PAL_DEFINE_UUIDOF(ITestEcho, orvtest::com::IID_ITestEcho);

namespace orvtest::com {

namespace rpc = pal::detail::rpc;

using EchoMethods =
    rpc::Interface<ITestEcho, &IID_ITestEcho,
                   rpc::Method<&ITestEcho::Echo, rpc::In<LPCWSTR>, rpc::Out<LPWSTR>>>;

class CEchoProxy final : public rpc::CProxyOf<EchoMethods>
{
public:
    using CProxyOf::CProxyOf;
    STDMETHODIMP Echo(LPCWSTR pszText, LPWSTR* ppszEcho) override
    {
        return Call<&ITestEcho::Echo>(pszText, ppszEcho);
    }
};

// The echo object: its text back; it counts the process's echo objects.
inline std::mutex g_lock;
inline std::condition_variable g_cvObjects;
inline LONG g_lObjects = 0;
inline LONG g_lCreated = 0;

inline void CountObject(LONG lDelta)
{
    std::lock_guard lock(g_lock);
    g_lObjects += lDelta;
    if (lDelta > 0)
        g_lCreated += lDelta;
    g_cvObjects.notify_all();
}

// Made as CComObject<CEcho>.
class CEcho : public CComObjectRootEx<CComMultiThreadModel>, public ITestEcho
{
public:
    BEGIN_COM_MAP(CEcho)
    COM_INTERFACE_ENTRY(ITestEcho)
    END_COM_MAP()

    CEcho() { CountObject(1); }
    ~CEcho() { CountObject(-1); }
    // A new object with one reference.
    static ITestEcho* Create()
    {
        CComObject<CEcho>* pEcho = nullptr;
        CComObject<CEcho>::CreateInstance(&pEcho);
        pEcho->AddRef();
        return pEcho;
    }
    STDMETHODIMP Echo(LPCWSTR pszText, LPWSTR* ppszEcho) override
    {
        *ppszEcho = nullptr;
        if (!pszText)
            return E_POINTER;
        size_t cb = (std::char_traits<WCHAR>::length(pszText) + 1) * sizeof(WCHAR);
        *ppszEcho = static_cast<LPWSTR>(CoTaskMemAlloc(cb));
        memcpy(*ppszEcho, pszText, cb);
        return S_OK;
    }
};

inline const rpc::CMarshalerRegistration g_echoMarshaler(EchoMethods::Marshaler<CEchoProxy>());

} // namespace orvtest::com
