// `orvsim vssadmin list providers`: the providers registered with the VSS coordinator, with
// vssadmin's output. The tool serves the coordinator in its own process and queries it as
// vssadmin does, through IVssAdmin; the registrations are the machine's, under its root.
// `list shadows` and `delete shadows` live in vssadmin_shadows.cpp.
#include "command.h"
#include "shadow_text.h"
#include "vssadmin_shadows.h"

#include "sim/vss/vsssim.h"

#include "pal/objbase.h"
#include "pal/palcontrol.h"

#include <cctype>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

namespace orvsim {

namespace {

const char* const kBanner = "vssadmin 1.1 - Volume Shadow Copy Service administrative "
                            "command-line tool\n(C) Copyright 2001-2013 Microsoft Corp.\n\n";

const char* TypeName(VSS_PROVIDER_TYPE type)
{
    switch (type) {
    case VSS_PROV_SYSTEM:
        return "System";
    case VSS_PROV_SOFTWARE:
        return "Software";
    case VSS_PROV_HARDWARE:
        return "Hardware";
    case VSS_PROV_FILESHARE:
        return "Fileshare";
    default:
        return "Unknown";
    }
}

} // namespace

// vssadmin's line for a failure, on one line as every orvsim failure.
int VssadminFail(HRESULT hr)
{
    std::cout.flush();
    if (hr == E_ACCESSDENIED) {
        std::cerr << "Error: You don't have the correct permissions to run this command.  Please "
                     "run this utility from a command window that has elevated administrator "
                     "privileges.\n";
    } else if (hr == VSS_E_UNEXPECTED) {
        std::cerr << "Error: A Volume Shadow Copy Service component encountered an unexpected "
                     "error. Check the Application event log for more information.\n";
    } else {
        char sz[16];
        std::snprintf(sz, sizeof(sz), "0x%08X", static_cast<DWORD>(hr));
        std::cerr << "Error: Unexpected failure: " << sz << ".\n";
    }
    return 1;
}

namespace {

// Prints every registered provider; those read before a failure are printed too.
HRESULT ListProviders()
{
    std::vector<ProviderRecord> providers;
    HRESULT hr = QueryProviderRecords(&providers);
    for (const ProviderRecord& provider : providers)
        std::cout << "Provider name: '" << provider.name << "'\n"
                  << "   Provider type: " << TypeName(provider.type) << "\n"
                  << "   Provider Id: " << GuidText(provider.providerId) << "\n"
                  << "   Version: " << provider.version << "\n\n";
    return hr;
}

class VssadminCommand : public Command
{
public:
    explicit VssadminCommand(CLI::App& app)
    {
        m_pVssadmin = app.add_subcommand(
            "vssadmin",
            "The VSS coordinator, with vssadmin's syntax and output: list providers, list "
            "shadows [/For=E:] [/Set={id}] [/Shadow={id}], delete shadows /Shadow={id} | /All | "
            "/For=E: [/Quiet]");
        // vssadmin's commands are words in any case ("List Providers"), left for Run to read.
        m_pVssadmin->prefix_command();
    }

    bool Selected() const override { return m_pVssadmin->parsed(); }

    int Run() override
    {
        std::vector<std::string> words = m_pVssadmin->remaining();
        std::cout << kBanner;
        std::string command = words.size() >= 2 ? Lower(words[0] + " " + words[1]) : "";
        std::vector<std::string> options(words.begin() + (words.size() >= 2 ? 2 : 0), words.end());
        bool fProviders = command == "list providers" && options.empty();
        if (!fProviders && command != "list shadows" && command != "delete shadows")
            return VssadminUsageError("Error: Invalid command.");
        if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
            return VssadminFail(E_UNEXPECTED);
        int exitCode = 0;
        if (fProviders) {
            HRESULT hr = ListProviders();
            exitCode = FAILED(hr) ? VssadminFail(hr) : 0;
        } else if (command == "list shadows") {
            exitCode = ListShadows(options);
        } else {
            exitCode = DeleteShadows(options);
        }
        CoUninitialize();
        std::cout.flush();
        return std::cout ? exitCode : 1;
    }

private:
    CLI::App* m_pVssadmin = nullptr;
};

} // namespace

std::unique_ptr<Command> AddVssadminCommand(CLI::App& app)
{
    return std::make_unique<VssadminCommand>(app);
}

} // namespace orvsim
