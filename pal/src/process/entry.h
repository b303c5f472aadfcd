// What the Windows entry (winmain.cpp) does around wWinMain, shared with ExitProcess.
#pragma once

#include "pal/windef.h"

namespace pal::detail::process {

// Records the process in the machine's process table and runs the start hooks.
void BeginEntry();
// Runs the exit hooks (once, whoever ends the process) and records the exit code.
void EndEntry(DWORD dwExitCode);
// The C runtime's lpCmdLine: the text after the program name (which a quote opens and the next
// one closes, blanks outside quotes end) and the blanks and control characters that follow it.
LPWSTR WinMainCommandLine(LPWSTR lpCommandLine);

} // namespace pal::detail::process
