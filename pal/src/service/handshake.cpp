// The start handshake between the manager and a new service process.
#include "pal/src/service/handshake.h"

#include "pal/src/service/socketio.h"

#include "pal/src/base/internal.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace pal::detail::service {

namespace {

constexpr char kVariable[] = "ORVSIM_SERVICE";
constexpr char kStarted = 'S';
// More arguments than any service is given: a guard against a garbled pair.
constexpr DWORD kMaxArguments = 4096;

} // namespace

std::string IdentityVariable(const ServiceIdentity& identity)
{
    return std::string(kVariable) + "=" + std::to_string(identity.llId) + ":" +
           std::to_string(identity.lockFd) + ":" + std::to_string(identity.handshakeFd) + ":" +
           ToUtf8(identity.name);
}

bool ReadIdentityVariable(ServiceIdentity* pIdentity)
{
    const char* value = std::getenv(kVariable);
    if (!value)
        return false;
    char* end = nullptr;
    pIdentity->llId = std::strtoll(value, &end, 10);
    if (*end != ':')
        return false;
    pIdentity->lockFd = static_cast<int>(std::strtol(end + 1, &end, 10));
    if (*end != ':')
        return false;
    pIdentity->handshakeFd = static_cast<int>(std::strtol(end + 1, &end, 10));
    if (*end != ':')
        return false;
    pIdentity->name = ToUtf16(end + 1);
    return pIdentity->llId > 0 && pIdentity->lockFd > 2 && pIdentity->handshakeFd > 2;
}

bool SendArguments(int fd, const std::vector<std::u16string>& args)
{
    DWORD cArgs = static_cast<DWORD>(args.size());
    if (!SendAll(fd, &cArgs, sizeof(cArgs)))
        return false;
    for (const std::u16string& arg : args) {
        DWORD cch = static_cast<DWORD>(arg.size());
        if (!SendAll(fd, &cch, sizeof(cch)) || !SendAll(fd, arg.data(), cch * sizeof(WCHAR)))
            return false;
    }
    return true;
}

bool ReceiveArguments(int fd, std::vector<std::u16string>* pArgs)
{
    DWORD cArgs = 0;
    if (!ReceiveAll(fd, &cArgs, sizeof(cArgs)) || cArgs > kMaxArguments)
        return false;
    for (DWORD i = 0; i < cArgs; ++i) {
        DWORD cch = 0;
        if (!ReceiveAll(fd, &cch, sizeof(cch)) || cch > 32767)
            return false;
        std::u16string arg(cch, u'\0');
        if (!ReceiveAll(fd, arg.data(), cch * sizeof(WCHAR)))
            return false;
        pArgs->push_back(std::move(arg));
    }
    return true;
}

bool WaitForStart(int fd, DWORD dwTimeoutMs)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + RealDuration(dwTimeoutMs);
    for (;;) {
        auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
        pollfd pfd{fd, POLLIN, 0};
        int ready = poll(&pfd, 1, left <= 0 ? 0 : static_cast<int>((left + 999) / 1000));
        if (ready < 0 && errno == EINTR)
            continue;
        char answer = 0;
        return ready > 0 && ReceiveAll(fd, &answer, 1) && answer == kStarted;
    }
}

void AnnounceStart(int fd)
{
    SendAll(fd, &kStarted, 1);
}

} // namespace pal::detail::service
