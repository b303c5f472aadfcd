// Tracing the error information a COM object left behind after a failed call.
#include "diag/trace.h"
#include "pal/oaidl.h"

namespace {

// Releases the interfaces and frees the strings on every exit.
struct CComErrorHolder
{
    ISupportErrorInfo* m_pSupport = nullptr;
    IErrorInfo* m_pErrorInfo = nullptr;
    BSTR m_bstrDescription = nullptr;
    BSTR m_bstrSource = nullptr;

    ~CComErrorHolder()
    {
        if (m_pSupport)
            m_pSupport->Release();
        if (m_pErrorInfo)
            m_pErrorInfo->Release();
        SysFreeString(m_bstrDescription);
        SysFreeString(m_bstrSource);
    }
};

} // namespace

void TraceComException(LPCWSTR pszSource, IUnknown* pUnk, REFIID riid)
{
    CTraceScope scope(W("TraceComException"));
    CComErrorHolder holder;

    HRESULT hr =
        pUnk->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(&holder.m_pSupport));
    if (FAILED(hr) || !holder.m_pSupport) {
        TRACE(TRACE_LEVEL_ERROR,
              W("QueryInterface on IID_ISupportErrorInfo FAILED [hr=0x%08x, psei=%p]\n"), hr,
              holder.m_pSupport);
        return;
    }

    hr = holder.m_pSupport->InterfaceSupportsErrorInfo(riid);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("InterfaceSupportsErrorInfo FAILED [hr=0x%08x]\n"), hr);
        return;
    }

    hr = GetErrorInfo(0, &holder.m_pErrorInfo);
    if (FAILED(hr) || !holder.m_pErrorInfo) {
        TRACE(TRACE_LEVEL_ERROR, W("GetErrorInfo FAILED [hr=0x%08x, psei=%p]\n"), hr,
              holder.m_pErrorInfo);
        return;
    }

    holder.m_pErrorInfo->GetDescription(&holder.m_bstrDescription);
    holder.m_pErrorInfo->GetSource(&holder.m_bstrSource);
    if (!holder.m_bstrDescription || !holder.m_bstrSource) {
        TRACE(TRACE_LEVEL_ERROR, W("NULL bstrDescp and/or bstrSource\n"));
        return;
    }
    TRACE(TRACE_LEVEL_ERROR, W("**** %s COM Exception: source=%s, description=%s\n"), pszSource,
          holder.m_bstrSource, holder.m_bstrDescription);
}
