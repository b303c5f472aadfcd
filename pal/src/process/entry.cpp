// The hooks of the Windows entry, the steps it takes around wWinMain, and ExitProcess.
#include "pal/src/process/entry.h"

#include "pal/palcontrol.h"
#include "pal/processthreadsapi.h"
#include "pal/src/process/processtable.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <unistd.h>
#include <vector>

namespace {

struct EntryHooks
{
    void (*pfnStart)();
    void (*pfnExit)();
};

// Constant-initialised, so that static initializers of any translation unit may add to them.
constexpr size_t kMaxHooks = 8;
std::mutex g_hookLock;
EntryHooks g_hooks[kMaxHooks];
size_t g_cHooks = 0;
std::atomic<bool> g_fEnding{false};

std::vector<EntryHooks> Hooks()
{
    std::lock_guard lock(g_hookLock);
    return std::vector<EntryHooks>(g_hooks, g_hooks + g_cHooks);
}

} // namespace

namespace pal {

bool AddProcessEntryHooks(void (*pfnStart)(), void (*pfnExit)())
{
    std::lock_guard lock(g_hookLock);
    if (g_cHooks == kMaxHooks)
        return false;
    g_hooks[g_cHooks++] = {pfnStart, pfnExit};
    return true;
}

} // namespace pal

namespace pal::detail::process {

void BeginEntry()
{
    // The program runs whether or not the table can be written, as it would on Windows.
    RecordStart();
    for (const EntryHooks& hooks : Hooks())
        if (hooks.pfnStart)
            hooks.pfnStart();
}

void EndEntry(DWORD dwExitCode)
{
    if (!g_fEnding.exchange(true)) {
        std::vector<EntryHooks> hooks = Hooks();
        for (auto it = hooks.rbegin(); it != hooks.rend(); ++it)
            if (it->pfnExit)
                it->pfnExit();
    }
    RecordExit(dwExitCode);
}

LPWSTR WinMainCommandLine(LPWSTR lpCommandLine)
{
    WCHAR* p = lpCommandLine;
    bool fQuoted = false;
    while (*p > u' ' || (*p != 0 && fQuoted)) {
        if (*p == u'"')
            fQuoted = !fQuoted;
        ++p;
    }
    while (*p != 0 && *p <= u' ')
        ++p;
    return p;
}

} // namespace pal::detail::process

void WINAPI ExitProcess(UINT uExitCode)
{
    pal::detail::process::EndEntry(uExitCode);
    // Windows flushes the C runtime's streams as it unloads the runtime; the program's own
    // static objects are not destroyed.
    std::fflush(nullptr);
    _exit(static_cast<int>(uExitCode & 0xFF));
}
