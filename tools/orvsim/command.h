// A subcommand of orvsim. Each one lives in its own source files and adds itself to the
// command line with an Add...Command function listed in main.cpp.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>

namespace orvsim {

class Command
{
public:
    virtual ~Command() = default;
    // True when the command line selected this command.
    virtual bool Selected() const = 0;
    // Runs it once the machine root is set: 0 on success, 1 on failure (after a one-line
    // message on standard error).
    virtual int Run() = 0;
};

// `orvsim reg`: query, add and delete registry keys and values in the manner of reg.exe.
std::unique_ptr<Command> AddRegCommand(CLI::App& app);
// `orvsim events`: the event log, newest last, as text or JSON.
std::unique_ptr<Command> AddEventsCommand(CLI::App& app);

// `orvsim sc`: create, start, control, query and delete services in the manner of sc.exe.
std::unique_ptr<Command> AddScCommand(CLI::App& app);

// `orvsim storage`: the simulated storage service's topology, state, faults and LUN data.
std::unique_ptr<Command> AddStorageCommand(CLI::App& app);
// `orvsim vssadmin`: the providers registered with the VSS coordinator and the machine's shadow
// copies, as vssadmin lists and deletes them.
std::unique_ptr<Command> AddVssadminCommand(CLI::App& app);
// `orvsim vss`: faults injected into the simulated VSS, and a set made or imported from here.
std::unique_ptr<Command> AddVssCommand(CLI::App& app);
// `orvsim diskshadow`: diskshadow's interpreter, making shadow copies through the providers.
std::unique_ptr<Command> AddDiskshadowCommand(CLI::App& app);

// `orvsim run`: runs a program as a process of the machine and prints its full exit code.
std::unique_ptr<Command> AddRunCommand(CLI::App& app);
// `orvsim tasklist`: the machine's processes with their exit codes, in tasklist's columns.
std::unique_ptr<Command> AddTasklistCommand(CLI::App& app);

} // namespace orvsim
