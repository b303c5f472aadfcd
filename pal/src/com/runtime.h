// What the COM runtime's implementation files share.
#pragma once

#include "pal/guiddef.h"
#include "pal/windef.h"
#include "pal/winerror.h"

struct IAccessControl;

namespace pal::detail {

struct MachineAccount;

// The calling thread may use COM: it initialised, or the process has a multithreaded
// apartment that it belongs to implicitly.
bool ComInitializedOnThread();
// The injected fault of a COM function as its HRESULT, S_OK when none applies.
HRESULT InjectedComFault(const char* api, const WCHAR* arg);

// A new object of the runtime's access control class (CLSID_DCOMAccessControl), asked for riid.
HRESULT CreateAccessControlObject(REFIID riid, void** ppv);

// The process's COM security as CoInitializeSecurity kept it.
struct ComSecurity
{
    bool fInitialized;
    DWORD dwAuthnLevel;
    DWORD dwImpLevel;
    DWORD dwCapabilities;
    IAccessControl* pAccessControl; // with a reference for the caller to release; null if none
};
ComSecurity GetComSecurity();
// Whether the process's COM security lets a caller running under `account` call in: the kept
// access control object's answer for the account's SID and COM_RIGHTS_EXECUTE, or TRUE when
// there is none (CoInitializeSecurity not called, or called without one).
HRESULT ComSecurityAllowsCaller(const MachineAccount& account, BOOL* pfAllowed);
// Forgets the kept security, releasing the access control object (pal::ResetForTest).
void ResetComSecurity();

} // namespace pal::detail
