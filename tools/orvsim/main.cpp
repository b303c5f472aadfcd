// orvsim: the command line of the emulated Windows host.
#include "command.h"

#include "pal/palcontrol.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <vector>

int main(int argc, char** argv)
{
    CLI::App app{"orvsim: the command line of the emulated Windows host.", "orvsim"};
    std::string root;
    app.add_option("--root", root,
                   "Machine root directory holding the emulated machine's state (default: "
                   "$ORVSIM_ROOT, else $HOME/.orvsim)");
    std::string account;
    app.add_option("--as", account,
                   "Run under this account of the machine: LocalSystem (default), Administrator "
                   "or User");
    app.require_subcommand(1);

    std::vector<std::unique_ptr<orvsim::Command>> commands;
    commands.push_back(orvsim::AddRegCommand(app));
    commands.push_back(orvsim::AddEventsCommand(app));
    commands.push_back(orvsim::AddScCommand(app));
    commands.push_back(orvsim::AddStorageCommand(app));
    commands.push_back(orvsim::AddVssadminCommand(app));
    commands.push_back(orvsim::AddVssCommand(app));
    commands.push_back(orvsim::AddDiskshadowCommand(app));
    commands.push_back(orvsim::AddRunCommand(app));
    commands.push_back(orvsim::AddTasklistCommand(app));

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::cerr << "ERROR: " << e.what() << " (see orvsim --help)\n";
        return 1;
    }

    if (!root.empty()) {
        std::error_code ec;
        std::filesystem::path absolute = std::filesystem::absolute(root, ec);
        setenv("ORVSIM_ROOT", ec ? root.c_str() : absolute.c_str(), 1);
    }
    if (!account.empty() && !pal::SetProcessAccount(pal::Utf8ToUtf16(account))) {
        std::cerr << "ERROR: The machine has no account named " << account << ".\n";
        return 1;
    }
    for (auto& command : commands)
        if (command->Selected())
            return command->Run();
    return 1;
}
