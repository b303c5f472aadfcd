// `orvsim tasklist [--running | --exited]`: the machine's processes (those started through the
// Windows entry, oldest first) in tasklist's columns, with their state and full exit code.
#include "command.h"

#include "pal/palcontrol.h"
#include "pal/winerror.h"

#include <cstdio>
#include <iostream>

namespace orvsim {

namespace {

// The image's file name, as tasklist shows it, cut to its column.
std::string ImageName(const std::u16string& path)
{
    size_t slash = path.find_last_of(u"/\\");
    std::string name =
        pal::Utf16ToUtf8(slash == std::u16string::npos ? path : path.substr(slash + 1));
    return name.substr(0, 25);
}

class TasklistCommand : public Command
{
public:
    explicit TasklistCommand(CLI::App& app)
    {
        m_pTasklist = app.add_subcommand(
            "tasklist", "The machine's processes in tasklist's columns, with their exit codes");
        CLI::Option* pRunning =
            m_pTasklist->add_flag("--running", m_fRunning, "Only the running processes");
        m_pTasklist->add_flag("--exited", m_fExited, "Only the processes that have ended")
            ->excludes(pRunning);
    }

    bool Selected() const override { return m_pTasklist->parsed(); }

    int Run() override
    {
        std::vector<pal::ProcessRecord> records;
        DWORD dwError = pal::ReadProcessTable(&records);
        if (dwError != ERROR_SUCCESS) {
            char code[16];
            std::snprintf(code, sizeof(code), "0x%08X", dwError);
            std::cerr << "ERROR: The process table cannot be read (error " << code << ").\n";
            return 1;
        }
        std::string text;
        for (const pal::ProcessRecord& r : records) {
            if ((m_fRunning && !r.fRunning) || (m_fExited && r.fRunning))
                continue;
            char line[128];
            if (r.fRunning)
                std::snprintf(line, sizeof(line), "%-25s %8u Running\n",
                              ImageName(r.imagePath).c_str(), r.dwProcessId);
            else
                std::snprintf(line, sizeof(line), "%-25s %8u Exited       0x%08X\n",
                              ImageName(r.imagePath).c_str(), r.dwProcessId, r.dwExitCode);
            text += line;
        }
        if (text.empty())
            std::cout << "INFO: No tasks are running which match the specified criteria.\n";
        else
            std::cout << "\nImage Name                     PID Status       Exit Code\n"
                         "========================= ======== ============ ==========\n"
                      << text;
        std::cout.flush();
        return std::cout ? 0 : 1;
    }

private:
    CLI::App* m_pTasklist = nullptr;
    bool m_fRunning = false;
    bool m_fExited = false;
};

} // namespace

std::unique_ptr<Command> AddTasklistCommand(CLI::App& app)
{
    return std::make_unique<TasklistCommand>(app);
}

} // namespace orvsim
