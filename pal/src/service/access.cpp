// Access to the manager and to services. LocalSystem and the administrators hold every right;
// other accounts hold what Windows' default security descriptors give interactive users.
#include "pal/src/service/access.h"

#include "pal/src/base/accounts.h"
#include "pal/winsvc.h"

namespace pal::detail::service {

namespace {

struct RightsMapping
{
    DWORD dwRead;
    DWORD dwWrite;
    DWORD dwExecute;
    DWORD dwAll;
    DWORD dwUser; // what an account outside the administrators may have
};

constexpr RightsMapping kManager = {
    STANDARD_RIGHTS_READ | SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_QUERY_LOCK_STATUS,
    STANDARD_RIGHTS_WRITE | SC_MANAGER_CREATE_SERVICE | SC_MANAGER_MODIFY_BOOT_CONFIG,
    STANDARD_RIGHTS_EXECUTE | SC_MANAGER_CONNECT | SC_MANAGER_LOCK,
    SC_MANAGER_ALL_ACCESS,
    SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_QUERY_LOCK_STATUS |
        STANDARD_RIGHTS_READ,
};

constexpr RightsMapping kService = {
    STANDARD_RIGHTS_READ | SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS | SERVICE_INTERROGATE |
        SERVICE_ENUMERATE_DEPENDENTS,
    STANDARD_RIGHTS_WRITE | SERVICE_CHANGE_CONFIG,
    STANDARD_RIGHTS_EXECUTE | SERVICE_START | SERVICE_STOP | SERVICE_PAUSE_CONTINUE |
        SERVICE_USER_DEFINED_CONTROL,
    SERVICE_ALL_ACCESS,
    SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS | SERVICE_ENUMERATE_DEPENDENTS |
        SERVICE_INTERROGATE | SERVICE_USER_DEFINED_CONTROL | READ_CONTROL,
};

bool Grant(const RightsMapping& m, DWORD dwDesired, DWORD* pdwGranted)
{
    const DWORD dwAllowed = ProcessAccount().fAdministrator ? m.dwAll : m.dwUser;
    DWORD dwSpecific = dwDesired & ~DWORD(GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE |
                                          GENERIC_ALL | MAXIMUM_ALLOWED);
    if (dwDesired & DWORD(GENERIC_READ))
        dwSpecific |= m.dwRead;
    if (dwDesired & DWORD(GENERIC_WRITE))
        dwSpecific |= m.dwWrite;
    if (dwDesired & DWORD(GENERIC_EXECUTE))
        dwSpecific |= m.dwExecute;
    if (dwDesired & DWORD(GENERIC_ALL))
        dwSpecific |= m.dwAll;
    if ((dwSpecific & ~dwAllowed) != 0)
        return false;
    *pdwGranted = (dwDesired & DWORD(MAXIMUM_ALLOWED)) ? dwAllowed : dwSpecific;
    return true;
}

} // namespace

bool GrantManagerAccess(DWORD dwDesired, DWORD* pdwGranted)
{
    // Opening the manager always asks for the right to connect.
    return Grant(kManager, dwDesired | SC_MANAGER_CONNECT, pdwGranted);
}

bool GrantServiceAccess(DWORD dwDesired, DWORD* pdwGranted)
{
    return Grant(kService, dwDesired, pdwGranted);
}

} // namespace pal::detail::service
