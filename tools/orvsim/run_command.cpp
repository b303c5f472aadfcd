// `orvsim run PROGRAM [ARGS...]`: starts a program as a process of the machine (same root and
// account, the tool's standard streams), waits for it and prints its full 32-bit exit code, as
// `cmd /c PROGRAM & echo %ERRORLEVEL%` shows it on Windows, since the host's exit status keeps
// only the low byte.
#include "command.h"

#include "pal/handleapi.h"
#include "pal/palcontrol.h"
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"
#include "pal/winerror.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace orvsim {

namespace {

// The code of the ended process: what it recorded through the Windows entry; for a program
// without that entry, its host exit status; for one killed by a signal, what
// GetExitCodeProcess shows.
DWORD ExitCodeOf(HANDLE hProcess, int status)
{
    pal::ProcessRecord record;
    if (hProcess && pal::ReadProcessRecord(hProcess, &record) == ERROR_SUCCESS &&
        record.fExitRecorded)
        return record.dwExitCode;
    if (WIFEXITED(status))
        return static_cast<DWORD>(WEXITSTATUS(status));
    DWORD dwCode = 1;
    if (hProcess)
        GetExitCodeProcess(hProcess, &dwCode);
    return dwCode;
}

class RunCommand : public Command
{
public:
    explicit RunCommand(CLI::App& app)
    {
        m_pRun = app.add_subcommand("run", "Run PROGRAM [ARGS...] as a process of the machine, "
                                           "wait for it and print its full exit code");
        // Everything after the program belongs to it, options included.
        m_pRun->prefix_command();
    }

    bool Selected() const override { return m_pRun->parsed(); }

    int Run() override
    {
        std::vector<std::string> words = m_pRun->remaining();
        if (words.empty()) {
            std::cerr << "ERROR: No program to run.\n";
            return 1;
        }
        // The program runs under the tool's account (--as) on the tool's machine (--root).
        setenv("ORVSIM_ACCOUNT", pal::Utf16ToUtf8(pal::ProcessAccountName()).c_str(), 1);
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        std::cout.flush();
        pid_t pid = -1;
        int rc = posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ);
        if (rc != 0) {
            std::cerr << "ERROR: " << words[0] << " cannot be started: " << std::strerror(rc)
                      << ".\n";
            return 1;
        }
        // As cmd does, the tool outlives an interrupt that the program receives too.
        std::signal(SIGINT, SIG_IGN);
        std::signal(SIGQUIT, SIG_IGN);
        // Opened before the program is reaped, so that the handle names it whatever it did.
        HANDLE hProcess = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE,
                                      static_cast<DWORD>(pid));
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        DWORD dwCode = ExitCodeOf(hProcess, status);
        if (hProcess)
            CloseHandle(hProcess);
        char line[64];
        std::snprintf(line, sizeof(line), "Exit code: 0x%08X (%d)\n", dwCode,
                      static_cast<int>(dwCode));
        std::cout << line;
        std::cout.flush();
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    CLI::App* m_pRun = nullptr;
};

} // namespace

std::unique_ptr<Command> AddRunCommand(CLI::App& app)
{
    return std::make_unique<RunCommand>(app);
}

} // namespace orvsim
