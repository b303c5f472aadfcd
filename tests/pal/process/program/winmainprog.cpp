// A program whose entry is wWinMain, started by the process tests: it reports what its entry
// handed it and returns the code its command line names. The command line's tail is
// "CODE [MODE] [anything]": MODE "hold" returns only once standard input ends, "exit" ends
// through ExitProcess(CODE), "kill" ends by SIGKILL before its exit code is recorded.
#include "pal/libloaderapi.h"
#include "pal/palcontrol.h"
#include "pal/processthreadsapi.h"
#include "pal/winbase.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

bool IsRecordedAsRunning()
{
    std::vector<pal::ProcessRecord> records;
    pal::ReadProcessTable(&records);
    for (const pal::ProcessRecord& r : records)
        if (r.dwProcessId == GetCurrentProcessId() && r.fRunning)
            return true;
    return false;
}

void OnStart()
{
    std::printf("start hook%s\n", IsRecordedAsRunning() ? " recorded" : "");
}

void OnExit()
{
    std::printf("exit hook\n");
}

const bool g_fHooked = pal::AddProcessEntryHooks(&OnStart, &OnExit);

} // namespace

int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE hPrevInstance, LPWSTR lpCmdLine, int nShowCmd)
{
    std::string tail = pal::Utf16ToUtf8(lpCmdLine);
    std::printf("line=[%s]\ntail=[%s] at %d show %d module %s\n",
                pal::Utf16ToUtf8(GetCommandLineW()).c_str(), tail.c_str(),
                static_cast<int>(lpCmdLine - GetCommandLineW()), nShowCmd,
                hInstance == GetModuleHandleW(nullptr) && !hPrevInstance && g_fHooked ? "yes"
                                                                                      : "no");
    std::fflush(stdout);
    size_t blank = tail.find(' ');
    std::string mode = blank == std::string::npos ? "" : tail.substr(blank + 1, 4);
    DWORD dwCode = static_cast<DWORD>(std::stoul(tail.substr(0, blank), nullptr, 0));
    if (mode == "kill")
        raise(SIGKILL);
    if (mode == "exit")
        ExitProcess(dwCode);
    if (mode == "hold") {
        char c;
        while (read(0, &c, 1) > 0) {
        }
    }
    return static_cast<int>(dwCode);
}
