// `orvsim diskshadow [-s SCRIPT]`: diskshadow's interpreter over the VSS simulation. The tool
// plays VSS (requester and service in one process) and reaches the installed provider through
// COM; the commands read from the script, each echoed after "-> ", or typed after the prompt.
#include "command.h"
#include "diskshadow_session.h"

#include "pal/objbase.h"

#include <chrono>
#include <fstream>
#include <iostream>

namespace orvsim {

namespace {

std::string BannerTime()
{
    // FILETIME counts 100 ns intervals from 1601, 11644473600 s before the Unix epoch.
    auto since = std::chrono::system_clock::now().time_since_epoch();
    return CreationTimeText(std::chrono::duration_cast<std::chrono::seconds>(since).count() *
                                10000000LL +
                            11644473600LL * 10000000LL);
}

// Runs the lines of `in` until its end or `exit`; a script stops at its first failure.
int RunSession(std::istream& in, bool fScript)
{
    CDiskShadowSession session(std::cout);
    bool fFailed = false;
    for (;;) {
        if (!fScript)
            std::cout << "DISKSHADOW> " << std::flush;
        std::string line;
        if (!std::getline(in, line))
            break;
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
            line.pop_back();
        if (fScript && line.find_first_not_of(" \t") == std::string::npos)
            continue;
        if (fScript)
            std::cout << "-> " << line << "\n";
        CDiskShadowSession::Result result = session.Execute(line);
        if (result == CDiskShadowSession::Result::Exit)
            break;
        if (result == CDiskShadowSession::Result::Failed) {
            fFailed = true;
            if (fScript)
                break;
        }
    }
    if (!fScript)
        std::cout << "\n";
    return fFailed ? 1 : 0;
}

class DiskshadowCommand : public Command
{
public:
    explicit DiskshadowCommand(CLI::App& app)
    {
        m_pDiskshadow = app.add_subcommand(
            "diskshadow", "diskshadow's interpreter: shadow copies made through the installed "
                          "providers; -s SCRIPT (or /s SCRIPT) reads the commands from a file");
        // diskshadow takes "/s FILE" as well as "-s FILE", left for Run to read.
        m_pDiskshadow->prefix_command();
    }

    bool Selected() const override { return m_pDiskshadow->parsed(); }

    int Run() override
    {
        std::vector<std::string> args = m_pDiskshadow->remaining();
        bool fScript = args.size() == 2 && (args[0] == "-s" || args[0] == "/s" || args[0] == "/S");
        if (!args.empty() && !fScript) {
            std::cerr << "ERROR: diskshadow takes -s SCRIPT or nothing (see orvsim diskshadow "
                         "--help)\n";
            return 1;
        }
        std::ifstream script;
        if (fScript) {
            script.open(args[1]);
            if (!script) {
                std::cerr << "ERROR: The script file " << args[1] << " cannot be opened.\n";
                return 1;
            }
        }
        std::cout << "Microsoft DiskShadow version 1.0\n"
                  << "Copyright (C) 2013 Microsoft Corporation\n"
                  << "On computer:  " << MachineName() << ",  " << BannerTime() << "\n\n";
        if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
            std::cerr << "ERROR: COM could not be initialised.\n";
            return 1;
        }
        int exitCode = fScript ? RunSession(script, true) : RunSession(std::cin, false);
        CoUninitialize();
        std::cout.flush();
        return std::cout ? exitCode : 1;
    }

private:
    CLI::App* m_pDiskshadow = nullptr;
};

} // namespace

std::unique_ptr<Command> AddDiskshadowCommand(CLI::App& app)
{
    return std::make_unique<DiskshadowCommand>(app);
}

} // namespace orvsim
