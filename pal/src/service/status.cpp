// A service's status: QueryServiceStatus, QueryServiceStatusEx, and the recorded reports that
// pal/palcontrol.h reads back.
#include "pal/palcontrol.h"
#include "pal/src/service/call.h"
#include "pal/src/service/liveness.h"

#include <cstring>

using namespace pal::detail::service;

BOOL WINAPI QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus)
{
    ScHandle handle;
    if (!EnterService("QueryServiceStatus", hService, SERVICE_QUERY_STATUS, &handle))
        return FALSE;
    if (!lpServiceStatus)
        return Finish(ERROR_INVALID_PARAMETER);
    ServiceRecord record;
    DWORD dwError = ReadCurrentRecord(handle.llServiceId, &record);
    if (dwError == ERROR_SUCCESS)
        *lpServiceStatus = record.status;
    return Finish(dwError);
}

BOOL WINAPI QueryServiceStatusEx(SC_HANDLE hService, SC_STATUS_TYPE InfoLevel, LPBYTE lpBuffer,
                                 DWORD cbBufSize, LPDWORD pcbBytesNeeded)
{
    ScHandle handle;
    if (!EnterService("QueryServiceStatusEx", hService, SERVICE_QUERY_STATUS, &handle))
        return FALSE;
    if (InfoLevel != SC_STATUS_PROCESS_INFO)
        return Finish(ERROR_INVALID_LEVEL);
    if (!pcbBytesNeeded)
        return Finish(ERROR_INVALID_PARAMETER);
    if (!lpBuffer || cbBufSize < sizeof(SERVICE_STATUS_PROCESS)) {
        *pcbBytesNeeded = sizeof(SERVICE_STATUS_PROCESS);
        return Finish(ERROR_INSUFFICIENT_BUFFER);
    }
    ServiceRecord record;
    DWORD dwError = ReadCurrentRecord(handle.llServiceId, &record);
    if (dwError != ERROR_SUCCESS)
        return Finish(dwError);
    const SERVICE_STATUS& s = record.status;
    SERVICE_STATUS_PROCESS status{s.dwServiceType,
                                  s.dwCurrentState,
                                  s.dwControlsAccepted,
                                  s.dwWin32ExitCode,
                                  s.dwServiceSpecificExitCode,
                                  s.dwCheckPoint,
                                  s.dwWaitHint,
                                  record.dwProcessId,
                                  0};
    // The caller's buffer need not be aligned.
    std::memcpy(lpBuffer, &status, sizeof(status));
    return TRUE;
}

namespace pal {

DWORD ServiceStatusReports(std::u16string_view serviceName,
                           std::vector<ServiceStatusReport>* pReports)
{
    pReports->clear();
    using namespace detail::service;
    return RunCall(false, [&](SqlConnection& conn) -> DWORD {
        std::optional<LONGLONG> id = FindLastServiceByName(conn, serviceName);
        if (!id)
            return ERROR_SERVICE_DOES_NOT_EXIST;
        SqlStatement select = conn.Prepare(
            "SELECT seq, pid, state, controls, win32_exit, specific_exit, check_point, wait_hint,"
            " tick, time, by_manager FROM reports WHERE service = ?1 ORDER BY seq");
        select.Bind(1, *id);
        while (select.Step()) {
            ServiceStatusReport r;
            r.ullSequence = static_cast<ULONGLONG>(select.Int64(0));
            r.dwProcessId = static_cast<DWORD>(select.Int64(1));
            r.dwCurrentState = static_cast<DWORD>(select.Int64(2));
            r.dwControlsAccepted = static_cast<DWORD>(select.Int64(3));
            r.dwWin32ExitCode = static_cast<DWORD>(select.Int64(4));
            r.dwServiceSpecificExitCode = static_cast<DWORD>(select.Int64(5));
            r.dwCheckPoint = static_cast<DWORD>(select.Int64(6));
            r.dwWaitHint = static_cast<DWORD>(select.Int64(7));
            r.dwTickCount = static_cast<DWORD>(select.Int64(8));
            r.ullTime = static_cast<ULONGLONG>(select.Int64(9));
            r.fByManager = select.Int64(10) != 0;
            pReports->push_back(r);
        }
        return ERROR_SUCCESS;
    });
}

} // namespace pal
