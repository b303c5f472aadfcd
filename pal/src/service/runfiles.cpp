// The lock that tells a live service process from a dead one. The manager takes it with flock
// before it starts the process, which inherits the open file and so holds it until it ends,
// whatever way it ends; nobody else keeps it longer than a probe.
#include "pal/src/service/runfiles.h"

#include "pal/palcontrol.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace pal::detail::service {

namespace {

int OpenLockFile(LONGLONG llServiceId)
{
    std::string path = RunFilePath(llServiceId, "lock");
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    // Kept clear of the standard descriptors, which the new process's output replaces.
    if (fd >= 0 && fd <= 2) {
        int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
        close(fd);
        fd = moved;
    }
    return fd;
}

} // namespace

std::string AbsoluteMachineRoot()
{
    std::error_code ec;
    std::filesystem::path root = std::filesystem::weakly_canonical(pal::MachineRoot(), ec);
    return ec ? pal::MachineRoot() : root.string();
}

std::string RunFilePath(LONGLONG llServiceId, const char* suffix)
{
    std::filesystem::path dir = std::filesystem::path(AbsoluteMachineRoot()) / "services";
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    return (dir / (std::to_string(llServiceId) + "." + suffix)).string();
}

int TakeServiceLock(LONGLONG llServiceId)
{
    int fd = OpenLockFile(llServiceId);
    if (fd < 0)
        return -1;
    // Another process may be probing the lock at this very moment: give it a little time.
    for (int attempt = 0; attempt < 50; ++attempt) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0)
            return fd;
        if (errno != EWOULDBLOCK && errno != EINTR)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    close(fd);
    return -1;
}

bool ServiceLockHeld(LONGLONG llServiceId)
{
    int fd = OpenLockFile(llServiceId);
    if (fd < 0)
        return true; // cannot tell: the process is not declared dead
    // Only a lock taken says the process is gone; any failure leaves it alive.
    bool fHeld = flock(fd, LOCK_EX | LOCK_NB) != 0;
    close(fd);
    return fHeld;
}

} // namespace pal::detail::service
