// The process's COM security: what CoInitializeSecurity keeps, and the question every call
// into the process will ask of it.
#include "pal/iaccess.h"
#include "pal/objbase.h"
#include "pal/src/base/accounts.h"
#include "pal/src/base/internal.h"
#include "pal/src/com/runtime.h"
#include "pal/src/security/sid.h"

#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace {

struct CComSecurityState
{
    std::mutex m_lock;
    pal::detail::ComSecurity m_security{}; // pAccessControl holds the kept reference
};

CComSecurityState& State()
{
    static CComSecurityState* pState = new CComSecurityState(); // threads may outlive exit
    return *pState;
}

HRESULT CheckArguments(PSECURITY_DESCRIPTOR pSecDesc, LONG cAuthSvc,
                       const SOLE_AUTHENTICATION_SERVICE* asAuthSvc, const void* pReserved1,
                       DWORD dwAuthnLevel, DWORD dwImpLevel, DWORD dwCapabilities,
                       const void* pReserved3)
{
    if (pReserved1 || pReserved3 || cAuthSvc < -1 || (cAuthSvc == -1 && asAuthSvc) ||
        (cAuthSvc > 0 && !asAuthSvc))
        return E_INVALIDARG;
    if (dwAuthnLevel > RPC_C_AUTHN_LEVEL_PKT_PRIVACY || dwImpLevel == RPC_C_IMP_LEVEL_DEFAULT ||
        dwImpLevel > RPC_C_IMP_LEVEL_DELEGATE)
        return E_INVALIDARG;
    if ((dwCapabilities & EOAC_ACCESS_CONTROL) &&
        (!pSecDesc || dwAuthnLevel == RPC_C_AUTHN_LEVEL_NONE || (dwCapabilities & EOAC_APPID)))
        return E_INVALIDARG;
    // An AppID's registry settings and security descriptors are not emulated.
    if ((dwCapabilities & EOAC_APPID) || (pSecDesc && !(dwCapabilities & EOAC_ACCESS_CONTROL)))
        return E_NOTIMPL;
    return S_OK;
}

} // namespace

HRESULT WINAPI CoInitializeSecurity(PSECURITY_DESCRIPTOR pSecDesc, LONG cAuthSvc,
                                    SOLE_AUTHENTICATION_SERVICE* asAuthSvc, void* pReserved1,
                                    DWORD dwAuthnLevel, DWORD dwImpLevel, void* pAuthList,
                                    DWORD dwCapabilities, void* pReserved3)
{
    UNREFERENCED_PARAMETER(pAuthList);
    if (HRESULT hr = pal::detail::InjectedComFault("CoInitializeSecurity", nullptr); FAILED(hr))
        return hr;
    if (!pal::detail::ComInitializedOnThread())
        return CO_E_NOTINITIALIZED;
    CComSecurityState& state = State();
    std::lock_guard lock(state.m_lock);
    if (state.m_security.fInitialized)
        return RPC_E_TOO_LATE;
    HRESULT hr = CheckArguments(pSecDesc, cAuthSvc, asAuthSvc, pReserved1, dwAuthnLevel, dwImpLevel,
                                dwCapabilities, pReserved3);
    if (FAILED(hr))
        return hr;
    IAccessControl* pAccessControl = nullptr;
    if (dwCapabilities & EOAC_ACCESS_CONTROL) {
        hr = static_cast<IUnknown*>(pSecDesc)->QueryInterface(
            IID_IAccessControl, reinterpret_cast<void**>(&pAccessControl));
        if (FAILED(hr))
            return hr;
    }
    // There is no real authentication, so every service the server names is taken.
    for (LONG i = 0; i < cAuthSvc; ++i)
        asAuthSvc[i].hr = S_OK;
    state.m_security = {true, dwAuthnLevel, dwImpLevel, dwCapabilities, pAccessControl};
    return S_OK;
}

namespace pal::detail {

ComSecurity GetComSecurity()
{
    CComSecurityState& state = State();
    std::lock_guard lock(state.m_lock);
    if (state.m_security.pAccessControl)
        state.m_security.pAccessControl->AddRef();
    return state.m_security;
}

HRESULT ComSecurityAllowsCaller(const MachineAccount& account, BOOL* pfAllowed)
{
    *pfAllowed = TRUE;
    ComSecurity security = GetComSecurity();
    if (!security.pAccessControl)
        return S_OK;
    // Asked outside the state's lock: the object is the server's own and may take its time.
    std::vector<BYTE> sid;
    HRESULT hr = E_OUTOFMEMORY;
    try {
        hr = SidFromText(account.pszSid, &sid) ? S_OK : E_UNEXPECTED;
    } catch (const std::bad_alloc&) {
    }
    if (SUCCEEDED(hr)) {
        TRUSTEE_W trustee{nullptr, NO_MULTIPLE_TRUSTEE, TRUSTEE_IS_SID, TRUSTEE_IS_USER,
                          reinterpret_cast<LPWSTR>(sid.data())};
        hr = security.pAccessControl->IsAccessAllowed(&trustee, nullptr, COM_RIGHTS_EXECUTE,
                                                      pfAllowed);
    }
    if (FAILED(hr))
        *pfAllowed = FALSE;
    security.pAccessControl->Release();
    return hr;
}

void ResetComSecurity()
{
    IAccessControl* pAccessControl = nullptr;
    {
        CComSecurityState& state = State();
        std::lock_guard lock(state.m_lock);
        pAccessControl = std::exchange(state.m_security, ComSecurity{}).pAccessControl;
    }
    // Outside the lock: the last release may run a destructor that calls back into COM.
    if (pAccessControl)
        pAccessControl->Release();
}

} // namespace pal::detail

namespace pal {

ComSecurityState GetComSecurityState()
{
    detail::ComSecurity security = detail::GetComSecurity();
    ComSecurityState state{security.fInitialized, security.pAccessControl != nullptr,
                           security.dwAuthnLevel, security.dwImpLevel, security.dwCapabilities};
    if (security.pAccessControl)
        security.pAccessControl->Release();
    return state;
}

HRESULT ComSecurityAllowsAccount(std::u16string_view name, BOOL* pfAllowed)
{
    const detail::MachineAccount* pAccount = detail::FindAccountByName(name);
    if (!pAccount) {
        *pfAllowed = FALSE;
        return E_INVALIDARG;
    }
    return detail::ComSecurityAllowsCaller(*pAccount, pfAllowed);
}

} // namespace pal
