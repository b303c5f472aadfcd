// StartServiceW: the service's image as a process of its own, and the wait for its dispatcher.
//
// One write transaction checks the service, takes its lock, spawns the process and records
// START_PENDING with the process's id, so that two starts from any processes never both spawn.
// The wait for the dispatcher happens after the commit, holding nothing; a start that times out
// records its end in a second transaction.
#include "pal/src/base/accounts.h"
#include "pal/src/base/internal.h"
#include "pal/src/service/call.h"
#include "pal/src/service/handshake.h"
#include "pal/src/service/imagepath.h"
#include "pal/src/service/liveness.h"
#include "pal/src/service/runfiles.h"
#include "pal/src/service/spawn.h"
#include "pal/src/service/startup.h"

#include <sys/socket.h>
#include <unistd.h>

using namespace pal::detail::service;

namespace {

// How long the manager waits for a process's dispatcher, and the wait hint it shows meanwhile.
constexpr DWORD kConnectTimeoutMs = 30000;
constexpr DWORD kStartWaitHintMs = 2000;

// The descriptors of one start, closed when it ends; the process keeps its own copies.
struct StartFds
{
    int lock = -1;
    int pair[2] = {-1, -1}; // [0] the manager's end, [1] the process's
    ~StartFds()
    {
        for (int fd : {lock, pair[0], pair[1]})
            if (fd >= 0)
                close(fd);
    }
};

DWORD CheckStartable(const ServiceRecord& record)
{
    if (record.fMarked)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    if (record.dwStartType == SERVICE_DISABLED)
        return ERROR_SERVICE_DISABLED;
    if (record.status.dwCurrentState != SERVICE_STOPPED)
        return ERROR_SERVICE_ALREADY_RUNNING;
    const pal::detail::MachineAccount* pAccount = pal::detail::FindAccountByName(record.account);
    if (!pAccount)
        return ERROR_SERVICE_LOGON_FAILED;
    if (pAccount->pszPassword && record.password != pAccount->pszPassword)
        return ERROR_SERVICE_LOGON_FAILED;
    return ERROR_SUCCESS;
}

// Spawns the process inside the start's transaction; *pPid is set once it runs.
DWORD SpawnFor(SqlConnection& conn, ServiceRecord& record, StartFds& fds, pid_t* pPid)
{
    SpawnRequest request;
    if (DWORD dwError = ResolveImagePath(record.imagePath, &request.program, &request.args))
        return dwError;
    fds.lock = TakeServiceLock(record.llId);
    if (fds.lock < 0)
        return ERROR_SERVICE_ALREADY_RUNNING;
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds.pair) != 0)
        return ERROR_NOT_ENOUGH_MEMORY;
    ServiceIdentity identity{record.llId, fds.lock, fds.pair[1], record.name};
    request.extraEnv = {"ORVSIM_ROOT=" + AbsoluteMachineRoot(),
                        "ORVSIM_ACCOUNT=" + pal::detail::ToUtf8(record.account),
                        IdentityVariable(identity)};
    request.inheritedFds = {fds.lock, fds.pair[1]};
    request.outputPath = RunFilePath(record.llId, "log");
    if (DWORD dwError = SpawnService(request, pPid))
        return dwError;
    SERVICE_STATUS status{};
    status.dwServiceType = record.dwType;
    status.dwCurrentState = SERVICE_START_PENDING;
    status.dwWaitHint = kStartWaitHintMs;
    RecordStatus(conn, record.llId, status, static_cast<DWORD>(*pPid), true);
    return ERROR_SUCCESS;
}

// The process did not start its service: it is killed and the service shown stopped, unless
// something else has already recorded an end.
void RecordTimeout(LONGLONG llServiceId, pid_t pid)
{
    KillService(pid);
    RunCall(true, [&](SqlConnection& conn) -> DWORD {
        ServiceRecord record;
        if (LoadService(conn, llServiceId, &record) &&
            record.dwProcessId == static_cast<DWORD>(pid) &&
            record.status.dwCurrentState != SERVICE_STOPPED) {
            SERVICE_STATUS status{};
            status.dwServiceType = record.dwType;
            status.dwCurrentState = SERVICE_STOPPED;
            status.dwWin32ExitCode = ERROR_SERVICE_REQUEST_TIMEOUT;
            RecordStatus(conn, llServiceId, status, static_cast<DWORD>(pid), true);
            record.status = status;
            RemoveIfUnused(conn, &record);
        }
        return ERROR_SUCCESS;
    });
}

} // namespace

DWORD pal::detail::service::StartServiceRecord(LONGLONG llServiceId,
                                               const std::vector<std::u16string>& args)
{
    StartFds fds;
    pid_t pid = -1;
    DWORD dwError = RunCall(true, [&](SqlConnection& conn) -> DWORD {
        ServiceRecord record;
        if (!LoadService(conn, llServiceId, &record) || record.fRemoved)
            return ERROR_SERVICE_MARKED_FOR_DELETE;
        NoticeDeath(conn, &record);
        if (DWORD dwCheck = CheckStartable(record))
            return dwCheck;
        return SpawnFor(conn, record, fds, &pid);
    });
    if (dwError != ERROR_SUCCESS) {
        // A process spawned by a transaction that did not commit must not run on.
        if (pid > 0)
            KillService(pid);
        return dwError;
    }
    close(fds.pair[1]);
    fds.pair[1] = -1;
    if (!SendArguments(fds.pair[0], args) || !WaitForStart(fds.pair[0], kConnectTimeoutMs)) {
        RecordTimeout(llServiceId, pid);
        return ERROR_SERVICE_REQUEST_TIMEOUT;
    }
    return ERROR_SUCCESS;
}

BOOL WINAPI StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCWSTR* lpServiceArgVectors)
{
    ScHandle handle;
    if (!EnterService("StartServiceW", hService, SERVICE_START, &handle))
        return FALSE;
    std::vector<std::u16string> args;
    try {
        for (DWORD i = 0; i < dwNumServiceArgs; ++i) {
            if (!lpServiceArgVectors || !lpServiceArgVectors[i])
                return Finish(ERROR_INVALID_PARAMETER);
            args.emplace_back(lpServiceArgVectors[i]);
        }
    } catch (const std::bad_alloc&) {
        return Finish(ERROR_NOT_ENOUGH_MEMORY);
    }
    DWORD dwError = StartServiceRecord(handle.llServiceId, args);
    return dwError == ERROR_SUCCESS ? TRUE : Finish(dwError);
}
