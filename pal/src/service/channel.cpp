// The control channel's socket. Its name is <machine root>/services/<id>.sock; a machine root
// too deep for sockaddr_un gets an abstract name derived from that path instead, so that every
// process of the machine still finds the same socket.
#include "pal/src/service/channel.h"

#include "pal/src/service/socketio.h"

#include "pal/src/base/internal.h"
#include "pal/src/service/runfiles.h"
#include "pal/winerror.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace pal::detail::service {

namespace {

using Clock = std::chrono::steady_clock;

struct SocketName
{
    sockaddr_un addr{};
    socklen_t cb = 0;
    bool fAbstract = false;
    std::string path;
};

SocketName NameFor(LONGLONG llServiceId)
{
    SocketName name;
    name.path = RunFilePath(llServiceId, "sock");
    name.addr.sun_family = AF_UNIX;
    if (name.path.size() < sizeof(name.addr.sun_path)) {
        std::memcpy(name.addr.sun_path, name.path.c_str(), name.path.size() + 1);
        name.cb = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.path.size() + 1);
        return name;
    }
    // FNV-1a of the path: the same in every process, unlike std::hash.
    ULONGLONG hash = 14695981039346656037ull;
    for (unsigned char c : name.path)
        hash = (hash ^ c) * 1099511628211ull;
    char text[64];
    int cch = std::snprintf(text, sizeof(text), "orvsim-service-%016llx",
                            static_cast<unsigned long long>(hash));
    std::memcpy(name.addr.sun_path + 1, text, static_cast<size_t>(cch));
    name.cb = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + cch);
    name.fAbstract = true;
    return name;
}

// What is left of the deadline, as poll's timeout (at least 1 ms while any remains).
int PollTimeout(Clock::time_point deadline)
{
    auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
    if (left.count() <= 0)
        return 0;
    return static_cast<int>((left.count() + 999) / 1000);
}

// Waits for fd to become readable before the deadline.
bool WaitReadable(int fd, Clock::time_point deadline)
{
    for (;;) {
        pollfd pfd{fd, POLLIN, 0};
        int ready = poll(&pfd, 1, PollTimeout(deadline));
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

} // namespace

DWORD SendControl(LONGLONG llServiceId, DWORD dwControl, DWORD dwTimeoutMs)
{
    const Clock::time_point deadline = Clock::now() + RealDuration(dwTimeoutMs);
    SocketName name = NameFor(llServiceId);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return ERROR_NOT_ENOUGH_MEMORY;
    DWORD dwResult = ERROR_SUCCESS;
    // A dispatcher busy with another control leaves connections in its backlog; a full backlog
    // refuses until it catches up.
    while (connect(fd, reinterpret_cast<sockaddr*>(&name.addr), name.cb) != 0) {
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN) {
            dwResult = ERROR_SERVICE_NOT_ACTIVE;
            break;
        }
        if (Clock::now() >= deadline) {
            dwResult = ERROR_SERVICE_REQUEST_TIMEOUT;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (dwResult == ERROR_SUCCESS) {
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
        DWORD dwReply = 0;
        if (!SendAll(fd, &dwControl, sizeof(dwControl)))
            dwResult = ERROR_SERVICE_NOT_ACTIVE;
        else if (!WaitReadable(fd, deadline))
            dwResult = ERROR_SERVICE_REQUEST_TIMEOUT;
        else if (!ReceiveAll(fd, &dwReply, sizeof(dwReply)))
            dwResult = ERROR_SERVICE_NOT_ACTIVE;
        else
            dwResult = dwReply;
    }
    close(fd);
    return dwResult;
}

int ListenForControls(LONGLONG llServiceId)
{
    SocketName name = NameFor(llServiceId);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    // A socket left by a process of the service that died; this process holds the service's
    // lock, so nobody else is listening.
    if (!name.fAbstract)
        unlink(name.path.c_str());
    if (bind(fd, reinterpret_cast<sockaddr*>(&name.addr), name.cb) != 0 || listen(fd, 16) != 0) {
        int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

void ForgetControls(LONGLONG llServiceId)
{
    SocketName name = NameFor(llServiceId);
    if (!name.fAbstract)
        unlink(name.path.c_str());
}

bool ReceiveControl(int fd, DWORD dwTimeoutMs, DWORD* pdwControl)
{
    const Clock::time_point deadline = Clock::now() + RealDuration(dwTimeoutMs);
    return WaitReadable(fd, deadline) && ReceiveAll(fd, pdwControl, sizeof(*pdwControl));
}

void ReplyControl(int fd, DWORD dwResult)
{
    // A caller that gave up has closed its end; that is no error here.
    SendAll(fd, &dwResult, sizeof(dwResult));
}

} // namespace pal::detail::service
