// The process-wide COM security: an access list that lets only the local system account (the
// account VSS runs under) and the local Administrators group call into the server's objects,
// handed to COM through the DCOM access control object.
#include "host/servicemodule.h"

#include "diag/trace.h"
#include "pal/accctrl.h"
#include "pal/errhandlingapi.h"
#include "pal/iaccess.h"
#include "pal/objbase.h"
#include "pal/securitybaseapi.h"

namespace {

// The two SIDs and the access control object of one call, released on every exit; COM keeps
// its own reference to the object once CoInitializeSecurity has taken it.
struct CSecurityHolder
{
    PSID pSystemSid = nullptr;
    PSID pAdminsSid = nullptr;
    IAccessControl* pAccessControl = nullptr;

    CSecurityHolder() = default;
    CSecurityHolder(const CSecurityHolder&) = delete;
    CSecurityHolder& operator=(const CSecurityHolder&) = delete;
    ~CSecurityHolder()
    {
        if (pAccessControl)
            pAccessControl->Release();
        if (pAdminsSid)
            FreeSid(pAdminsSid);
        if (pSystemSid)
            FreeSid(pSystemSid);
    }
};

void AllowExecute(ACTRL_ACCESS_ENTRYW& entry, TRUSTEE_TYPE trusteeType, PSID pSid)
{
    entry.Trustee.pMultipleTrustee = nullptr;
    entry.Trustee.MultipleTrusteeOperation = NO_MULTIPLE_TRUSTEE;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.TrusteeType = trusteeType;
    entry.Trustee.ptstrName = static_cast<LPWSTR>(pSid);
    entry.fAccessFlags = ACTRL_ACCESS_ALLOWED;
    entry.Access = COM_RIGHTS_EXECUTE;
    entry.ProvSpecificAccess = 0;
    entry.Inheritance = NO_INHERITANCE;
    entry.lpInheritProperty = nullptr;
}

} // namespace

HRESULT CServiceModule::InitializeSecurity()
{
    CTraceScope scope(W("CServiceModule::InitializeSecurity"));
    CSecurityHolder holder;

    SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
    if (!AllocateAndInitializeSid(&ntAuthority, 1, SECURITY_LOCAL_SYSTEM_RID, 0, 0, 0, 0, 0, 0, 0,
                                  &holder.pSystemSid)) {
        HRESULT hr = HRESULT_FROM_WIN32(GetLastError());
        TRACE(TRACE_LEVEL_ERROR, W("AllocateAndInitializeSid FAILED\n"));
        return hr;
    }
    if (!AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID,
                                  DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0, &holder.pAdminsSid)) {
        HRESULT hr = HRESULT_FROM_WIN32(GetLastError());
        TRACE(TRACE_LEVEL_ERROR, W("AllocateAndInitializeSid FAILED\n"));
        return hr;
    }

    ACTRL_ACCESS_ENTRYW entries[2];
    AllowExecute(entries[0], TRUSTEE_IS_USER, holder.pSystemSid);
    AllowExecute(entries[1], TRUSTEE_IS_GROUP, holder.pAdminsSid);
    ACTRL_ACCESS_ENTRY_LISTW entryList;
    entryList.cEntries = 2;
    entryList.pAccessList = entries;
    ACTRL_PROPERTY_ENTRYW propertyEntry;
    propertyEntry.lpProperty = nullptr;
    propertyEntry.pAccessEntryList = &entryList;
    propertyEntry.fListFlags = 0;
    ACTRL_ACCESSW accessList;
    accessList.cEntries = 1;
    accessList.pPropertyAccessList = &propertyEntry;

    HRESULT hr = CoCreateInstance(CLSID_DCOMAccessControl, nullptr, CLSCTX_ALL, IID_IAccessControl,
                                  reinterpret_cast<void**>(&holder.pAccessControl));
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR,
              W("CoCreateInstance on CLSID_DCOMAccessControl FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    hr = holder.pAccessControl->SetAccessRights(&accessList);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("SetAccessRights FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    // With EOAC_ACCESS_CONTROL COM takes the access control object where a security
    // descriptor would go.
    hr = CoInitializeSecurity(holder.pAccessControl, -1, nullptr, nullptr,
                              RPC_C_AUTHN_LEVEL_PKT_INTEGRITY, RPC_C_IMP_LEVEL_IDENTIFY, nullptr,
                              EOAC_ACCESS_CONTROL, nullptr);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("CoInitializeSecurity FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    TRACE(TRACE_LEVEL_INFO, W("CoInitializeSecurity succeeded\n"));
    return S_OK;
}
