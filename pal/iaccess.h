// IAccessControl: who may call a COM server. A server creates the runtime's own implementation,
// fills it with an access list and hands it to CoInitializeSecurity with EOAC_ACCESS_CONTROL:
//
//   CComPtr<IAccessControl> pAC;
//   CoCreateInstance(CLSID_DCOMAccessControl, NULL, CLSCTX_ALL, IID_IAccessControl, (void**)&pAC);
//   pAC->SetAccessRights(&access);   // entries allowing COM_RIGHTS_EXECUTE to SIDs or names
//   CoInitializeSecurity(pAC, -1, NULL, NULL, RPC_C_AUTHN_LEVEL_PKT_INTEGRITY,
//                        RPC_C_IMP_LEVEL_IDENTIFY, NULL, EOAC_ACCESS_CONTROL, NULL);
//
// The runtime's object (CLSID_DCOMAccessControl, created in process only) keeps the rules of the
// system's implementation:
//  - A list given to SetAccessRights or GrantAccessRights holds exactly one property entry, whose
//    lpProperty is NULL; each of its entries allows or denies (ACTRL_ACCESS_ALLOWED,
//    ACTRL_ACCESS_DENIED) COM_RIGHTS_EXECUTE with NO_INHERITANCE to one trustee named by SID or
//    by name. Anything else is E_INVALIDARG, a name of no account or group of the machine is
//    HRESULT_FROM_WIN32(ERROR_NONE_MAPPED), and a refused list changes nothing.
//  - SetAccessRights replaces the entries; GrantAccessRights puts the new denied entries before
//    the old denied ones and the new allowed entries before the old allowed ones.
//    RevokeAccessRights removes every entry of the given trustees (a trustee given by name and
//    the same one given by SID are the same).
//  - GetAllAccessRights returns the entries (denied ones first) in one task-allocated block that
//    one CoTaskMemFree frees, trustees in the form they were given in; owner and group are NULL.
//    SetOwner is E_NOTIMPL, as in the system's implementation.
//  - IsAccessAllowed(pTrustee, NULL, COM_RIGHTS_EXECUTE or 0, &f) sees the trustee as the
//    machine's account of that SID or name sees itself: its own SID and its groups'
//    (Administrators for LocalSystem and Administrator, Users, Everyone); a trustee that is no
//    account stands for itself alone. A denied entry for any of them refuses; otherwise an
//    allowed entry for any of them allows; otherwise access is refused.
// Approximated: Windows answers IsAccessAllowed only during a call, for its caller; here it
// answers for any account of the machine at any time, which is how the runtime checks a caller.
// Injected faults (pal::InjectFault) named "IAccessControl::SetAccessRights" and
// "IAccessControl::GrantAccessRights" make those methods return the injected value as their
// HRESULT, changing nothing.
#pragma once

#include "pal/accctrl.h"
#include "pal/combaseapi.h"
#include "pal/unknwn.h"
#include "pal/uuidof.h"

using PACTRL_ACCESSW_ALLOCATE_ALL_NODES = PACTRL_ACCESSW;

// {EEDD23E0-8410-11CE-A1C3-08002B2B8D8F}
inline constexpr IID IID_IAccessControl = {
    0xEEDD23E0, 0x8410, 0x11CE, {0xA1, 0xC3, 0x08, 0x00, 0x2B, 0x2B, 0x8D, 0x8F}};
// {0000031D-0000-0000-C000-000000000046}; on Windows cguid.h declares it.
inline constexpr CLSID CLSID_DCOMAccessControl = {
    0x0000031D, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

interface IAccessControl : public IUnknown
{
    STDMETHOD(GrantAccessRights)(PACTRL_ACCESSW pAccessList) PURE;
    STDMETHOD(SetAccessRights)(PACTRL_ACCESSW pAccessList) PURE;
    STDMETHOD(SetOwner)(PTRUSTEEW pOwner, PTRUSTEEW pGroup) PURE;
    STDMETHOD(RevokeAccessRights)(LPWSTR lpProperty, ULONG cTrustees, TRUSTEEW prgTrustees[]) PURE;
    STDMETHOD(GetAllAccessRights)
    (LPWSTR lpProperty, PACTRL_ACCESSW_ALLOCATE_ALL_NODES* ppAccessList, PTRUSTEEW* ppOwner,
     PTRUSTEEW* ppGroup) PURE;
    STDMETHOD(IsAccessAllowed)
    (PTRUSTEEW pTrustee, LPWSTR lpProperty, ACCESS_RIGHTS AccessRights, BOOL* pfAccessAllowed) PURE;

protected:
    ~IAccessControl() = default;
};

PAL_DEFINE_UUIDOF(IAccessControl, IID_IAccessControl);
