// main() of a program whose entry is wWinMain (the library orv_pal_winmain): what Windows and its
// C runtime do around wWinMain, and the full 32-bit exit code kept where GetExitCodeProcess
// finds it, since the host keeps only its low byte.
#include "pal/libloaderapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/process/entry.h"
#include "pal/winbase.h"
#include "pal/winuser.h"

int main(int, char**)
{
    pal::detail::process::BeginEntry();
    int nExitCode =
        wWinMain(GetModuleHandleW(nullptr), nullptr,
                 pal::detail::process::WinMainCommandLine(GetCommandLineW()), SW_SHOWDEFAULT);
    pal::detail::process::EndEntry(static_cast<DWORD>(nExitCode));
    return nExitCode;
}
