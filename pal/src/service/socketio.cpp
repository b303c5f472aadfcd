// Whole messages over the manager's sockets.
#include "pal/src/service/socketio.h"

#include <cerrno>
#include <sys/socket.h>
#include <sys/types.h>

namespace pal::detail::service {

bool SendAll(int fd, const void* pv, size_t cb)
{
    const auto* p = static_cast<const char*>(pv);
    while (cb > 0) {
        ssize_t n = send(fd, p, cb, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        cb -= static_cast<size_t>(n);
    }
    return true;
}

bool ReceiveAll(int fd, void* pv, size_t cb)
{
    auto* p = static_cast<char*>(pv);
    while (cb > 0) {
        ssize_t n = recv(fd, p, cb, MSG_WAITALL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        cb -= static_cast<size_t>(n);
    }
    return true;
}

} // namespace pal::detail::service
