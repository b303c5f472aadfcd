// The machine's process table, <machine root>/processes.db: one row per process started through
// the Windows entry, with its full 32-bit exit code once it has recorded one. The schema is
// described in docs/ARCHITECTURE.md ("Processes and exit codes").
#pragma once

#include "pal/palcontrol.h"
#include "pal/windef.h"

#include <optional>

namespace pal::detail::process {

// The exit code of a process that ended without recording one, as a forced end leaves it.
constexpr DWORD kUnrecordedExitCode = 1;

// What /proc says of a process: its start time in clock ticks after boot, and whether it has
// ended (a zombie). Nothing when the host has no process of that id.
struct HostProcess
{
    ULONGLONG ullStartIdentity = 0;
    bool fEnded = false;
};
std::optional<HostProcess> ReadHostProcess(DWORD dwProcessId);

// Records the calling process as started (its id, start identity, image path and command line).
// ERROR_SUCCESS or the Win32 error of the failed write.
DWORD RecordStart();
// Records the calling process's exit code in the row RecordStart wrote; nothing without one.
DWORD RecordExit(DWORD dwExitCode);

// The newest row of the process `dwProcessId` with that start identity, or with any when none
// is given: ERROR_SUCCESS, ERROR_NOT_FOUND, or the error of the failed read. fRunning and
// dwExitCode are left for the caller, who knows whether the process lives.
DWORD FindRecord(DWORD dwProcessId, std::optional<ULONGLONG> startIdentity, ProcessRecord* pRecord);
// fRunning and dwExitCode of a row, as the host shows the process now.
void CompleteRecord(ProcessRecord* pRecord);

} // namespace pal::detail::process
