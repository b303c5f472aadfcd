// ITestEcho, the small interface that the out-of-process tests call in another process, with
// its marshaler (what a proxy/stub DLL would register), shared by the test and its server.
#pragma once

#include "pal/objbase.h"
#include "pal/src/com/rpc/marshal.h"

#include <cstring>
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
    // Waits (up to ten seconds) until the server's object count is lExpected; the count then.
    STDMETHOD(WaitForObjects)(LONG lExpected, LONG* plObjects) PURE;

protected:
    ~ITestEcho() = default;
};

namespace orvtest::com {

class CEchoProxy final : public pal::detail::rpc::CProxy<ITestEcho>
{
public:
    explicit CEchoProxy(pal::detail::rpc::CRemote* pRemote) : CProxy(pRemote, IID_ITestEcho) {}

    STDMETHODIMP Echo(LPCWSTR pszText, LPWSTR* ppszEcho) override
    {
        pal::detail::rpc::CWriter request;
        request.PutString(pszText);
        pal::detail::rpc::CReader reply;
        HRESULT hr = pal::detail::rpc::RemoteCall(Remote(), IID_ITestEcho, 0, request, &reply);
        std::u16string text;
        bool fNull = true;
        if (SUCCEEDED(hr) && !reply.GetString(&text, &fNull))
            return RPC_E_INVALID_DATA;
        if (FAILED(hr))
            return hr;
        size_t cb = (text.size() + 1) * sizeof(WCHAR);
        *ppszEcho = static_cast<LPWSTR>(CoTaskMemAlloc(cb));
        if (!*ppszEcho)
            return E_OUTOFMEMORY;
        memcpy(*ppszEcho, text.c_str(), cb);
        return hr;
    }
    STDMETHODIMP WaitForObjects(LONG lExpected, LONG* plObjects) override
    {
        pal::detail::rpc::CWriter request;
        request.PutU32(static_cast<uint32_t>(lExpected));
        pal::detail::rpc::CReader reply;
        HRESULT hr = pal::detail::rpc::RemoteCall(Remote(), IID_ITestEcho, 1, request, &reply);
        uint32_t dw = 0;
        if (SUCCEEDED(hr) && !reply.GetU32(&dw))
            return RPC_E_INVALID_DATA;
        *plObjects = static_cast<LONG>(dw);
        return hr;
    }
};

inline HRESULT InvokeEcho(IUnknown* pItf, uint16_t method, pal::detail::rpc::CReader& request,
                          pal::detail::rpc::CWriter& reply)
{
    auto* pEcho = static_cast<ITestEcho*>(pItf);
    if (method == 0) {
        std::u16string text;
        bool fNull = false;
        if (!request.GetString(&text, &fNull))
            return RPC_E_INVALID_DATA;
        LPWSTR pszEcho = nullptr;
        HRESULT hr =
            pEcho->Echo(fNull ? nullptr : reinterpret_cast<LPCWSTR>(text.c_str()), &pszEcho);
        reply.PutString(pszEcho);
        CoTaskMemFree(pszEcho);
        return hr;
    }
    uint32_t dw = 0;
    if (method != 1 || !request.GetU32(&dw))
        return RPC_E_INVALID_DATA;
    LONG lObjects = 0;
    HRESULT hr = pEcho->WaitForObjects(static_cast<LONG>(dw), &lObjects);
    reply.PutU32(static_cast<uint32_t>(lObjects));
    return hr;
}

inline const pal::detail::rpc::CMarshalerRegistration
    g_echoMarshaler({&IID_ITestEcho, &pal::detail::rpc::CreateProxy<CEchoProxy>, &InvokeEcho});

} // namespace orvtest::com
