// Process objects: OpenProcess, GetExitCodeProcess and waits on a process, over the host's
// processes (a pidfd while the process lives) and the machine's process table (its exit code).
#include "pal/errhandlingapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/base/internal.h"
#include "pal/src/process/processtable.h"
#include "pal/src/sync/handletable.h"
#include "pal/winerror.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

using pal::detail::KernelLock;
namespace process = pal::detail::process;

constexpr DWORD kProcessAllAccess = PROCESS_ALL_ACCESS;

// Descriptors shared by a process object and the thread that tells waiters of the process's end;
// closed when both are done with them.
struct ExitWatch
{
    int fdProcess = -1; // pidfd: readable once the process has ended
    int fdCancel = -1;  // eventfd: written when the object goes
    ~ExitWatch()
    {
        for (int fd : {fdProcess, fdCancel})
            if (fd >= 0)
                close(fd);
    }
};

bool IsReadable(int fd)
{
    pollfd pfd{fd, POLLIN, 0};
    return poll(&pfd, 1, 0) > 0;
}

class ProcessObject : public pal::detail::KernelObject
{
public:
    ProcessObject(DWORD dwProcessId, ULONGLONG ullStartIdentity, std::shared_ptr<ExitWatch> pWatch)
        : m_dwProcessId(dwProcessId), m_ullStartIdentity(ullStartIdentity),
          m_pWatch(std::move(pWatch)), m_fEnded(!m_pWatch)
    {}
    ~ProcessObject() override
    {
        if (m_fWatching)
            eventfd_write(m_pWatch->fdCancel, 1);
    }

    DWORD ProcessId() const { return m_dwProcessId; }
    ULONGLONG StartIdentity() const { return m_ullStartIdentity; }

    bool HasEnded() const
    {
        if (!m_fEnded && IsReadable(m_pWatch->fdProcess))
            m_fEnded = true;
        return m_fEnded;
    }

    // A waiter about to sleep asks first; the watcher wakes it when the process ends.
    bool IsSignaledLocked() const override
    {
        if (HasEnded())
            return true;
        if (!m_fWatching)
            StartWatcherLocked();
        return false;
    }

    // Reading is querying and reading memory; writing, every right that changes the process;
    // executing, waiting, the limited query and terminating.
    const pal::detail::AccessMapping& Mapping() const override
    {
        static const pal::detail::AccessMapping mapping = {
            0x00020410, 0x00020BEA, 0x00020000 | pal::detail::kSynchronize | 0x1001,
            kProcessAllAccess};
        return mapping;
    }

private:
    void StartWatcherLocked() const
    {
        if (m_pWatch->fdCancel < 0)
            m_pWatch->fdCancel = eventfd(0, EFD_CLOEXEC);
        if (m_pWatch->fdCancel < 0)
            return;
        try {
            std::thread([pWatch = m_pWatch] {
                pollfd fds[2] = {{pWatch->fdProcess, POLLIN, 0}, {pWatch->fdCancel, POLLIN, 0}};
                while (poll(fds, 2, -1) < 0 && errno == EINTR) {
                }
                if (fds[0].revents != 0) {
                    std::lock_guard lock(KernelLock());
                    pal::detail::NotifyWaitersLocked();
                }
            }).detach();
            m_fWatching = true;
        } catch (const std::exception&) {
            // No thread: the waiter still sees the end at its timeout.
        }
    }

    const DWORD m_dwProcessId;
    const ULONGLONG m_ullStartIdentity;
    const std::shared_ptr<ExitWatch> m_pWatch; // null when the process had ended at the open
    mutable std::atomic<bool> m_fEnded;
    mutable bool m_fWatching = false; // guarded by KernelLock()
};

// The exit code GetExitCodeProcess answers for an ended process: the recorded one, else the
// code of a forced end. ERROR_SUCCESS or the error of the failed read.
DWORD EndedExitCode(const ProcessObject& process, DWORD* pdwExitCode)
{
    pal::ProcessRecord record;
    DWORD dwError = process::FindRecord(process.ProcessId(), process.StartIdentity(), &record);
    if (dwError != ERROR_SUCCESS && dwError != ERROR_NOT_FOUND)
        return dwError;
    *pdwExitCode = dwError == ERROR_SUCCESS && record.fExitRecorded ? record.dwExitCode
                                                                    : process::kUnrecordedExitCode;
    return ERROR_SUCCESS;
}

} // namespace

HANDLE WINAPI GetCurrentProcess()
{
    return pal::detail::CurrentProcessPseudoHandle();
}

HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId)
{
    (void)bInheritHandle;
    if (pal::detail::FailIfInjected("OpenProcess"))
        return nullptr;
    std::shared_ptr<ExitWatch> pWatch;
    ULONGLONG ullStartIdentity = 0;
    // The pidfd names the process that had the id when it was opened, whatever reuses the id
    // later; /proc read after it gives that process's start identity.
    int fdProcess = -1;
    if (dwProcessId != 0 && dwProcessId <= 0x7FFFFFFF) {
        fdProcess = static_cast<int>(syscall(SYS_pidfd_open, pid_t(dwProcessId), 0));
        if (fdProcess < 0 && (errno == EMFILE || errno == ENFILE)) {
            SetLastError(ERROR_TOO_MANY_OPEN_FILES);
            return nullptr;
        }
    }
    std::optional<process::HostProcess> host;
    if (fdProcess >= 0 && (host = process::ReadHostProcess(dwProcessId))) {
        pWatch = std::make_shared<ExitWatch>();
        pWatch->fdProcess = fdProcess;
        ullStartIdentity = host->ullStartIdentity;
    } else {
        if (fdProcess >= 0)
            close(fdProcess);
        // No live process: an ended one of the table.
        pal::ProcessRecord record;
        DWORD dwError = process::FindRecord(dwProcessId, std::nullopt, &record);
        if (dwError != ERROR_SUCCESS) {
            SetLastError(dwError == ERROR_NOT_FOUND ? DWORD(ERROR_INVALID_PARAMETER) : dwError);
            return nullptr;
        }
        ullStartIdentity = record.ullStartIdentity;
    }
    auto pProcess = std::make_shared<ProcessObject>(dwProcessId, ullStartIdentity, pWatch);
    DWORD dwAccess = pal::detail::MapAccess(dwDesiredAccess, pProcess->Mapping());
    if (dwAccess & PROCESS_QUERY_INFORMATION)
        dwAccess |= PROCESS_QUERY_LIMITED_INFORMATION;
    return pal::detail::InsertHandle(pProcess, dwAccess);
}

BOOL WINAPI GetExitCodeProcess(HANDLE hProcess, LPDWORD lpExitCode)
{
    if (pal::detail::FailIfInjected("GetExitCodeProcess"))
        return FALSE;
    std::shared_ptr<ProcessObject> pProcess;
    if (hProcess != pal::detail::CurrentProcessPseudoHandle()) {
        pProcess = pal::detail::ReferenceHandleAs<ProcessObject>(hProcess,
                                                                 PROCESS_QUERY_LIMITED_INFORMATION);
        if (!pProcess)
            return FALSE;
    }
    if (!lpExitCode) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    if (!pProcess || !pProcess->HasEnded()) {
        *lpExitCode = STILL_ACTIVE;
        return TRUE;
    }
    DWORD dwError = EndedExitCode(*pProcess, lpExitCode);
    if (dwError != ERROR_SUCCESS) {
        SetLastError(dwError);
        return FALSE;
    }
    return TRUE;
}

namespace pal {

DWORD ReadProcessRecord(HANDLE hProcess, ProcessRecord* pRecord)
{
    std::shared_ptr<ProcessObject> pProcess = detail::ReferenceHandleAs<ProcessObject>(hProcess, 0);
    if (!pProcess)
        return ERROR_INVALID_HANDLE;
    DWORD dwError = process::FindRecord(pProcess->ProcessId(), pProcess->StartIdentity(), pRecord);
    if (dwError == ERROR_SUCCESS)
        process::CompleteRecord(pRecord);
    return dwError;
}

} // namespace pal
