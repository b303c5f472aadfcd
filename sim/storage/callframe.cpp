// The frame of the service's method calls: faults, delays and error objects.
#include "objects.h"

#include "model.h"

#include "pal/comdef.h"
#include "pal/palcontrol.h"
#include "pal/synchapi.h"

#include <vector>

namespace storagesim::detail {

void SetServiceError(REFIID iid, LPCWSTR pszSource, const std::string& description)
{
    ICreateErrorInfo* pCreate = nullptr;
    if (FAILED(CreateErrorInfo(&pCreate)))
        return;
    std::u16string source(pszSource);
    std::u16string text = pal::Utf8ToUtf16(description);
    pCreate->SetGUID(iid);
    pCreate->SetSource(source.data());
    pCreate->SetDescription(text.data());
    IErrorInfo* pInfo = nullptr;
    if (SUCCEEDED(pCreate->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&pInfo)))) {
        SetErrorInfo(0, pInfo);
        pInfo->Release();
    }
    pCreate->Release();
}

HRESULT CServiceCall::Enter()
{
    // A call through a proxy never returns with an error object of an earlier call.
    SetErrorInfo(0, nullptr);
    if (m_pObject && m_pObject->Disconnected())
        return CO_E_OBJNOTCONNECTED;
    if (!m_pszFaultName)
        return S_OK;
    CFaultHit hit;
    if (HRESULT hr = ConsumeFaults(m_pszFaultName, &hit); FAILED(hr))
        return Leave(hr, "The service cannot read its state");
    if (hit.dwDelayMs)
        Sleep(hit.dwDelayMs);
    if (FAILED(hit.hrRaise)) {
        // As a client's wrapper of the call raises it: the error, with its error object.
        Leave(hit.hrRaise, std::string(m_pszFaultName) + " raised a COM error (injected fault)");
        IErrorInfo* pInfo = nullptr;
        if (GetErrorInfo(0, &pInfo) != S_OK)
            pInfo = nullptr;
        throw _com_error(hit.hrRaise, pInfo);
    }
    if (FAILED(hit.hrFail))
        return Leave(hit.hrFail, std::string(m_pszFaultName) + " failed (injected fault)");
    return S_OK;
}

HRESULT CServiceCall::Leave(HRESULT hr, const std::string& why)
{
    if (FAILED(hr))
        SetServiceError(m_iid, m_pszSource, why.empty() ? std::string(m_method) + " failed" : why);
    return hr;
}

} // namespace storagesim::detail
