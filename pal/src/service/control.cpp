// ControlService: the checks Windows makes before a control reaches a service, and its delivery
// over the control channel to the service's process, whichever process calls.
#include "pal/src/service/call.h"
#include "pal/src/service/channel.h"
#include "pal/src/service/liveness.h"

using namespace pal::detail::service;

namespace {

// How long a handler may take before the caller gives up on it.
constexpr DWORD kHandlerTimeoutMs = 30000;

struct ControlRule
{
    DWORD dwRight;  // needed on the handle
    DWORD dwAccept; // needed in the service's controls accepted; 0: always delivered
};

// False for a code ControlService cannot send.
bool RuleFor(DWORD dwControl, ControlRule* pRule)
{
    switch (dwControl) {
    case SERVICE_CONTROL_STOP:
        *pRule = {SERVICE_STOP, SERVICE_ACCEPT_STOP};
        return true;
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE:
        *pRule = {SERVICE_PAUSE_CONTINUE, SERVICE_ACCEPT_PAUSE_CONTINUE};
        return true;
    case SERVICE_CONTROL_PARAMCHANGE:
        *pRule = {SERVICE_PAUSE_CONTINUE, SERVICE_ACCEPT_PARAMCHANGE};
        return true;
    case SERVICE_CONTROL_NETBINDADD:
    case SERVICE_CONTROL_NETBINDREMOVE:
    case SERVICE_CONTROL_NETBINDENABLE:
    case SERVICE_CONTROL_NETBINDDISABLE:
        *pRule = {SERVICE_PAUSE_CONTINUE, SERVICE_ACCEPT_NETBINDCHANGE};
        return true;
    case SERVICE_CONTROL_INTERROGATE:
        *pRule = {SERVICE_INTERROGATE, 0};
        return true;
    default:
        // The service's own codes; shutdown and the system's notifications only the system
        // sends.
        if (dwControl >= 128 && dwControl <= 255) {
            *pRule = {SERVICE_USER_DEFINED_CONTROL, 0};
            return true;
        }
        return false;
    }
}

// Whether the control may be sent in the service's present state.
DWORD CheckState(const SERVICE_STATUS& status, const ControlRule& rule)
{
    switch (status.dwCurrentState) {
    case SERVICE_STOPPED:
        return ERROR_SERVICE_NOT_ACTIVE;
    case SERVICE_START_PENDING:
    case SERVICE_STOP_PENDING:
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    default:
        return (status.dwControlsAccepted & rule.dwAccept) == rule.dwAccept
                   ? ERROR_SUCCESS
                   : ERROR_INVALID_SERVICE_CONTROL;
    }
}

} // namespace

BOOL WINAPI ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus)
{
    ScHandle handle;
    ControlRule rule{};
    if (!EnterService("ControlService", hService, 0, &handle))
        return FALSE;
    if (!RuleFor(dwControl, &rule) || !lpServiceStatus)
        return Finish(ERROR_INVALID_PARAMETER);
    if ((handle.dwGranted & rule.dwRight) != rule.dwRight)
        return Finish(ERROR_ACCESS_DENIED);
    ServiceRecord record;
    if (DWORD dwError = ReadCurrentRecord(handle.llServiceId, &record))
        return Finish(dwError);
    if (DWORD dwError = CheckState(record.status, rule)) {
        *lpServiceStatus = record.status;
        return Finish(dwError);
    }
    DWORD dwResult = SendControl(handle.llServiceId, dwControl, kHandlerTimeoutMs);
    if (DWORD dwError = ReadCurrentRecord(handle.llServiceId, &record))
        return Finish(dwError);
    if (dwResult == ERROR_SERVICE_NOT_ACTIVE && record.status.dwCurrentState != SERVICE_STOPPED)
        // Its process still holds the service but no longer listens: it is as good as hung.
        dwResult = ERROR_SERVICE_REQUEST_TIMEOUT;
    if (dwResult == ERROR_SUCCESS || dwResult == ERROR_SERVICE_NOT_ACTIVE ||
        dwResult == ERROR_SERVICE_CANNOT_ACCEPT_CTRL)
        *lpServiceStatus = record.status;
    return Finish(dwResult);
}
