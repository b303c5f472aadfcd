// The service's side: StartServiceCtrlDispatcherW, RegisterServiceCtrlHandlerW and
// SetServiceStatus.
//
// The dispatcher listens on the service's control channel before it announces the start, so a
// control sent as soon as StartServiceW returns finds it. It runs ServiceMain on a thread of its
// own and calls the handler on its own thread, one control at a time, as Windows does. It
// returns once the service has reported SERVICE_STOPPED and ServiceMain has returned; it then
// lets go of the service's lock, which a new start takes.
#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "pal/src/service/call.h"
#include "pal/src/service/channel.h"
#include "pal/src/service/handshake.h"
#include "pal/src/service/liveness.h"
#include "pal/src/service/runfiles.h"

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace pal::detail::service;

namespace {

// How long the dispatcher waits for a caller that connected to send its control.
constexpr DWORD kRequestTimeoutMs = 30000;

struct Dispatcher
{
    std::mutex lock;
    bool fCalled = false;  // StartServiceCtrlDispatcherW was called successfully once
    bool fRunning = false; // the dispatcher is serving
    ServiceIdentity identity;
    LPHANDLER_FUNCTION pfnHandler = nullptr;
    SERVICE_STATUS_HANDLE hStatus = nullptr;
    bool fStopped = false;
    bool fMainReturned = false;
    int wake[2] = {-1, -1}; // written whenever the two flags above change
};

Dispatcher& TheDispatcher()
{
    static Dispatcher dispatcher;
    return dispatcher;
}

void Wake(Dispatcher& d)
{
    char c = 0;
    (void)!write(d.wake[1], &c, 1);
}

// The descriptors the manager handed down must still be its: a process that a service started
// in turn inherits the variable but not the descriptors.
bool IsOwnIdentity(const ServiceIdentity& identity)
{
    struct stat lockStat, fileStat, pairStat;
    std::string lockPath = RunFilePath(identity.llId, "lock");
    return fstat(identity.lockFd, &lockStat) == 0 && stat(lockPath.c_str(), &fileStat) == 0 &&
           lockStat.st_ino == fileStat.st_ino && lockStat.st_dev == fileStat.st_dev &&
           fstat(identity.handshakeFd, &pairStat) == 0 && S_ISSOCK(pairStat.st_mode);
}

const SERVICE_TABLE_ENTRYW* ChooseEntry(const SERVICE_TABLE_ENTRYW* table, std::u16string_view name)
{
    for (const SERVICE_TABLE_ENTRYW* p = table; p->lpServiceName; ++p)
        if (p->lpServiceProc && FoldedName(p->lpServiceName) == FoldedName(name))
            return p;
    // A service of its own process runs the first entry whatever its name.
    return table[0].lpServiceProc ? &table[0] : nullptr;
}

// One control from an accepted connection: the handler runs on this thread, outside any lock.
void ServeOne(Dispatcher& d, int fd)
{
    DWORD dwControl = 0;
    if (!ReceiveControl(fd, kRequestTimeoutMs, &dwControl))
        return;
    LPHANDLER_FUNCTION pfnHandler = nullptr;
    {
        std::lock_guard lock(d.lock);
        pfnHandler = d.pfnHandler;
    }
    if (!pfnHandler) {
        ReplyControl(fd, ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
        return;
    }
    pfnHandler(dwControl);
    ReplyControl(fd, ERROR_SUCCESS);
}

void Serve(Dispatcher& d, int listenFd)
{
    for (;;) {
        {
            std::lock_guard lock(d.lock);
            if (d.fStopped && d.fMainReturned)
                return;
        }
        pollfd pfds[2] = {{listenFd, POLLIN, 0}, {d.wake[0], POLLIN, 0}};
        if (poll(pfds, 2, -1) < 0)
            continue;
        if (pfds[1].revents & POLLIN) {
            char drain[64];
            (void)!read(d.wake[0], drain, sizeof(drain));
        }
        if (pfds[0].revents & POLLIN) {
            int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0) {
                ServeOne(d, fd);
                close(fd);
            }
        }
    }
}

} // namespace

BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* lpServiceStartTable)
{
    if (pal::detail::FailIfInjected("StartServiceCtrlDispatcherW"))
        return FALSE;
    Dispatcher& d = TheDispatcher();
    ServiceIdentity identity;
    if (!ReadIdentityVariable(&identity) || !IsOwnIdentity(identity))
        return Finish(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    {
        std::lock_guard lock(d.lock);
        if (d.fCalled)
            return Finish(ERROR_SERVICE_ALREADY_RUNNING);
    }
    const SERVICE_TABLE_ENTRYW* pEntry =
        lpServiceStartTable ? ChooseEntry(lpServiceStartTable, identity.name) : nullptr;
    if (!pEntry)
        return Finish(ERROR_INVALID_DATA);
    // Children of the service do not inherit its lock or its end of the handshake.
    fcntl(identity.lockFd, F_SETFD, FD_CLOEXEC);
    fcntl(identity.handshakeFd, F_SETFD, FD_CLOEXEC);

    std::vector<std::u16string> args{identity.name};
    int listenFd = ListenForControls(identity.llId);
    if (listenFd < 0 || pipe2(d.wake, O_CLOEXEC | O_NONBLOCK) != 0 ||
        !ReceiveArguments(identity.handshakeFd, &args)) {
        if (listenFd >= 0)
            close(listenFd);
        return Finish(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    }
    std::vector<LPWSTR> argv;
    for (std::u16string& arg : args)
        argv.push_back(arg.data());
    {
        std::lock_guard lock(d.lock);
        d.fCalled = true;
        d.fRunning = true;
        d.identity = identity;
        d.hStatus = reinterpret_cast<SERVICE_STATUS_HANDLE>(
            static_cast<ULONG_PTR>(0x5C000000u | static_cast<ULONG_PTR>(identity.llId & 0xFFFFFF)));
    }
    LPSERVICE_MAIN_FUNCTIONW pfnMain = pEntry->lpServiceProc;
    std::thread main([&d, pfnMain, &argv] {
        pfnMain(static_cast<DWORD>(argv.size()), argv.data());
        std::lock_guard lock(d.lock);
        d.fMainReturned = true;
        Wake(d);
    });
    AnnounceStart(identity.handshakeFd);
    close(identity.handshakeFd);

    Serve(d, listenFd);

    main.join();
    close(listenFd);
    ForgetControls(identity.llId);
    {
        std::lock_guard lock(d.lock);
        d.fRunning = false;
        d.pfnHandler = nullptr;
        // Letting go of the lock is what tells the manager this process is done with the service.
        close(identity.lockFd);
    }
    return TRUE;
}

SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerW(LPCWSTR lpServiceName,
                                                         LPHANDLER_FUNCTION lpHandlerProc)
{
    if (pal::detail::FailIfInjected("RegisterServiceCtrlHandlerW", lpServiceName))
        return nullptr;
    Dispatcher& d = TheDispatcher();
    std::lock_guard lock(d.lock);
    if (!d.fRunning) {
        SetLastError(ERROR_SERVICE_NOT_IN_EXE);
        return nullptr;
    }
    d.pfnHandler = lpHandlerProc;
    return d.hStatus;
}

BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus, LPSERVICE_STATUS lpServiceStatus)
{
    Dispatcher& d = TheDispatcher();
    // Held across the write, so that the reports of every thread are recorded in call order.
    std::lock_guard lock(d.lock);
    if (pal::detail::FailIfInjected("SetServiceStatus",
                                    d.fRunning ? d.identity.name.c_str() : nullptr))
        return FALSE;
    if (!d.fRunning || hServiceStatus != d.hStatus)
        return Finish(ERROR_INVALID_HANDLE);
    const DWORD dwType =
        lpServiceStatus ? lpServiceStatus->dwServiceType & ~DWORD(SERVICE_INTERACTIVE_PROCESS) : 0;
    if (!lpServiceStatus || lpServiceStatus->dwCurrentState < SERVICE_STOPPED ||
        lpServiceStatus->dwCurrentState > SERVICE_PAUSED ||
        (dwType != SERVICE_WIN32_OWN_PROCESS && dwType != SERVICE_WIN32_SHARE_PROCESS))
        return Finish(ERROR_INVALID_DATA);
    const SERVICE_STATUS status = *lpServiceStatus;
    DWORD dwError = RunCall(true, [&](SqlConnection& conn) -> DWORD {
        ServiceRecord record;
        if (!LoadService(conn, d.identity.llId, &record))
            return ERROR_INVALID_HANDLE;
        RecordStatus(conn, record.llId, status, static_cast<DWORD>(getpid()), false);
        record.status = status;
        RemoveIfUnused(conn, &record);
        return ERROR_SUCCESS;
    });
    if (dwError != ERROR_SUCCESS)
        return Finish(dwError);
    d.fStopped = status.dwCurrentState == SERVICE_STOPPED;
    Wake(d);
    return TRUE;
}
