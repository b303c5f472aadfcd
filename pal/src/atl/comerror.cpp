// Raising the COM error exception.
#include "pal/comdef.h"

void WINAPI _com_issue_error(HRESULT hr)
{
    throw _com_error(hr);
}

void WINAPI _com_issue_errorex(HRESULT hr, IUnknown* punk, REFIID riid)
{
    IErrorInfo* perrinfo = nullptr;
    ISupportErrorInfo* psei = nullptr;
    if (punk &&
        SUCCEEDED(punk->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(&psei)))) {
        if (psei->InterfaceSupportsErrorInfo(riid) == S_OK && GetErrorInfo(0, &perrinfo) != S_OK)
            perrinfo = nullptr;
        psei->Release();
    }
    throw _com_error(hr, perrinfo);
}
