// Service processes: posix_spawn, and a detached thread per process that waits for its end.
// The thread first only observes the end (WNOWAIT), so that the id stays the dead process's
// until KillService can no longer mistake it, and then reaps it.
#include "pal/src/service/spawn.h"

#include "pal/winerror.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace pal::detail::service {

namespace {

struct Children
{
    std::mutex lock;
    std::set<pid_t> running; // started here and not known to have ended
};

// Never destroyed: reaping threads may outlive the process's static objects.
Children& TheChildren()
{
    static Children* pChildren = new Children;
    return *pChildren;
}

void Reap(pid_t pid)
{
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    {
        Children& children = TheChildren();
        std::lock_guard lock(children.lock);
        children.running.erase(pid);
    }
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

DWORD Win32FromErrno(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return ERROR_FILE_NOT_FOUND;
    case EACCES:
    case EPERM:
        return ERROR_ACCESS_DENIED;
    case ENOEXEC:
        return ERROR_BAD_EXE_FORMAT;
    case ENOMEM:
    case EAGAIN:
        return ERROR_NOT_ENOUGH_MEMORY;
    default:
        return ERROR_GEN_FAILURE;
    }
}

// The caller's environment without the names the request sets, then the request's.
std::vector<std::string> Environment(const std::vector<std::string>& extra)
{
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) {
        std::string entry(*e);
        bool fReplaced = false;
        for (const std::string& x : extra)
            fReplaced |= entry.compare(0, x.find('=') + 1, x, 0, x.find('=') + 1) == 0;
        if (!fReplaced)
            env.push_back(std::move(entry));
    }
    env.insert(env.end(), extra.begin(), extra.end());
    return env;
}

} // namespace

DWORD SpawnService(const SpawnRequest& request, pid_t* pPid)
{
    int outFd = open(request.outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (outFd < 0)
        return Win32FromErrno(errno);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outFd, 1);
    posix_spawn_file_actions_adddup2(&actions, outFd, 2);
    // Duplicating a descriptor onto itself clears its close-on-exec flag.
    for (int fd : request.inheritedFds)
        posix_spawn_file_actions_adddup2(&actions, fd, fd);

    std::vector<std::string> env = Environment(request.extraEnv);
    std::vector<char*> argv{const_cast<char*>(request.program.c_str())};
    for (const std::string& a : request.args)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (std::string& e : env)
        envp.push_back(e.data());
    envp.push_back(nullptr);

    pid_t pid = -1;
    int rc =
        posix_spawn(&pid, request.program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(outFd);
    if (rc != 0)
        return Win32FromErrno(rc);
    {
        Children& children = TheChildren();
        std::lock_guard lock(children.lock);
        children.running.insert(pid);
    }
    try {
        std::thread(Reap, pid).detach();
    } catch (const std::system_error&) {
        // No thread to spare: the process is left for the system to reap with this one.
    }
    *pPid = pid;
    return ERROR_SUCCESS;
}

bool ChildRunning(pid_t pid)
{
    Children& children = TheChildren();
    std::lock_guard lock(children.lock);
    return children.running.count(pid) != 0;
}

void KillService(pid_t pid)
{
    Children& children = TheChildren();
    std::lock_guard lock(children.lock);
    if (children.running.count(pid))
        kill(pid, SIGKILL);
}

} // namespace pal::detail::service
