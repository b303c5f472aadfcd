// Deaths and removals. A process holds its service's lock for its whole life (runfiles.h), so a
// service that is not stopped while nobody holds its lock has lost its process.
#include "pal/src/service/liveness.h"

#include "pal/src/service/handles.h"
#include "pal/src/service/runfiles.h"

namespace pal::detail::service {

namespace {

bool MayHaveDied(const ServiceRecord& record)
{
    return !record.fRemoved && record.status.dwCurrentState != SERVICE_STOPPED &&
           record.dwProcessId != 0;
}

} // namespace

bool NoticeDeath(SqlConnection& conn, ServiceRecord* pRecord)
{
    if (!MayHaveDied(*pRecord) || ServiceLockHeld(pRecord->llId))
        return false;
    SERVICE_STATUS status{};
    status.dwServiceType = pRecord->dwType;
    status.dwCurrentState = SERVICE_STOPPED;
    status.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    RecordStatus(conn, pRecord->llId, status, pRecord->dwProcessId, true);
    pRecord->status = status;
    pRecord->dwProcessId = 0;
    RemoveIfUnused(conn, pRecord);
    return true;
}

void RemoveIfUnused(SqlConnection& conn, ServiceRecord* pRecord)
{
    if (pRecord->fMarked && !pRecord->fRemoved &&
        pRecord->status.dwCurrentState == SERVICE_STOPPED && !AnyHandleTo(pRecord->llId)) {
        StoreRemoved(conn, pRecord->llId);
        pRecord->fRemoved = true;
    }
}

DWORD ReadCurrentRecord(LONGLONG llServiceId, ServiceRecord* pRecord)
{
    bool fSuspect = false;
    DWORD dwError = RunCall(false, [&](SqlConnection& conn) -> DWORD {
        if (!LoadService(conn, llServiceId, pRecord))
            return ERROR_SERVICE_DOES_NOT_EXIST;
        fSuspect = MayHaveDied(*pRecord) && !ServiceLockHeld(llServiceId);
        return ERROR_SUCCESS;
    });
    if (dwError != ERROR_SUCCESS || !fSuspect)
        return dwError;
    return RunCall(true, [&](SqlConnection& conn) -> DWORD {
        if (!LoadService(conn, llServiceId, pRecord))
            return ERROR_SERVICE_DOES_NOT_EXIST;
        NoticeDeath(conn, pRecord);
        return ERROR_SUCCESS;
    });
}

} // namespace pal::detail::service
