// Per-thread COM error information objects.
#include "pal/oaidl.h"
#include "pal/src/base/internal.h"

#include <atomic>
#include <new>

namespace {

// Holds a BSTR and frees it on every exit.
class CBstrField
{
public:
    ~CBstrField() { SysFreeString(m_bstr); }
    HRESULT Set(LPCOLESTR psz)
    {
        BSTR bstr = nullptr;
        if (psz && !(bstr = SysAllocString(psz)))
            return E_OUTOFMEMORY;
        SysFreeString(m_bstr);
        m_bstr = bstr;
        return S_OK;
    }
    HRESULT Copy(BSTR* pOut) const
    {
        if (!pOut)
            return E_INVALIDARG;
        *pOut = nullptr;
        if (m_bstr && !(*pOut = SysAllocStringLen(m_bstr, SysStringLen(m_bstr))))
            return E_OUTOFMEMORY;
        return S_OK;
    }

private:
    BSTR m_bstr = nullptr;
};

class CErrorInfo final : public IErrorInfo, public ICreateErrorInfo
{
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IErrorInfo)) {
            *ppv = static_cast<IErrorInfo*>(this);
        } else if (IsEqualIID(riid, IID_ICreateErrorInfo)) {
            *ppv = static_cast<ICreateErrorInfo*>(this);
        } else {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_cRef; }
    STDMETHODIMP_(ULONG) Release() override
    {
        ULONG cRef = --m_cRef;
        if (cRef == 0)
            delete this;
        return cRef;
    }

    STDMETHODIMP GetGUID(GUID* pGUID) override
    {
        if (!pGUID)
            return E_INVALIDARG;
        *pGUID = m_guid;
        return S_OK;
    }
    STDMETHODIMP GetSource(BSTR* p) override { return m_source.Copy(p); }
    STDMETHODIMP GetDescription(BSTR* p) override { return m_description.Copy(p); }
    STDMETHODIMP GetHelpFile(BSTR* p) override { return m_helpFile.Copy(p); }
    STDMETHODIMP GetHelpContext(DWORD* p) override
    {
        if (!p)
            return E_INVALIDARG;
        *p = m_dwHelpContext;
        return S_OK;
    }

    STDMETHODIMP SetGUID(REFGUID rguid) override
    {
        m_guid = rguid;
        return S_OK;
    }
    STDMETHODIMP SetSource(LPOLESTR psz) override { return m_source.Set(psz); }
    STDMETHODIMP SetDescription(LPOLESTR psz) override { return m_description.Set(psz); }
    STDMETHODIMP SetHelpFile(LPOLESTR psz) override { return m_helpFile.Set(psz); }
    STDMETHODIMP SetHelpContext(DWORD dw) override
    {
        m_dwHelpContext = dw;
        return S_OK;
    }

private:
    ~CErrorInfo() = default;

    std::atomic<ULONG> m_cRef{1};
    GUID m_guid = GUID_NULL;
    CBstrField m_source;
    CBstrField m_description;
    CBstrField m_helpFile;
    DWORD m_dwHelpContext = 0;
};

// The thread's reference; released when the thread ends.
struct CThreadErrorInfo
{
    IErrorInfo* m_pErrorInfo = nullptr;
    ~CThreadErrorInfo()
    {
        if (m_pErrorInfo)
            m_pErrorInfo->Release();
    }
};
thread_local CThreadErrorInfo t_errorInfo;

} // namespace

HRESULT WINAPI GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo)
{
    if (dwReserved != 0)
        return E_INVALIDARG;
    if (!pperrinfo)
        return E_INVALIDARG;
    *pperrinfo = t_errorInfo.m_pErrorInfo;
    t_errorInfo.m_pErrorInfo = nullptr;
    return *pperrinfo ? S_OK : S_FALSE;
}

HRESULT WINAPI SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo)
{
    if (dwReserved != 0)
        return E_INVALIDARG;
    if (perrinfo)
        perrinfo->AddRef();
    if (t_errorInfo.m_pErrorInfo)
        t_errorInfo.m_pErrorInfo->Release();
    t_errorInfo.m_pErrorInfo = perrinfo;
    return S_OK;
}

HRESULT WINAPI CreateErrorInfo(ICreateErrorInfo** pperrinfo)
{
    if (!pperrinfo)
        return E_INVALIDARG;
    auto* pInfo = new (std::nothrow) CErrorInfo();
    *pperrinfo = pInfo;
    return pInfo ? S_OK : E_OUTOFMEMORY;
}
