// Starting a service's process and reaping it.
#pragma once

#include "pal/windef.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace pal::detail::service {

struct SpawnRequest
{
    std::string program;
    std::vector<std::string> args;     // after the program's own name
    std::vector<std::string> extraEnv; // NAME=value, replacing the caller's of that name
    std::vector<int> inheritedFds;     // kept open, at the same numbers, in the new process
    std::string outputPath;            // standard output and error, appended
};

// Starts the process: standard input empty, output to the file. ERROR_SUCCESS and *pPid, or
// the Win32 error of the failure (ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED,
// ERROR_BAD_EXE_FORMAT, ...). A thread of this process reaps it when it ends, so that no zombie
// is left.
DWORD SpawnService(const SpawnRequest& request, pid_t* pPid);
// Kills a process started here, unless it has already ended (so never another process that
// came to have its id).
void KillService(pid_t pid);
// Whether a process started here is still running.
bool ChildRunning(pid_t pid);

} // namespace pal::detail::service
