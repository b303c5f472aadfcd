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

// Prints every provider the enumerator holds, freeing each record's strings.
HRESULT PrintProviders(IVssEnumObject* pEnum)
{
    for (;;) {
        VSS_OBJECT_PROP prop;
        ULONG cFetched = 0;
        HRESULT hr = pEnum->Next(1, &prop, &cFetched);
        if (FAILED(hr))
            return hr;
        if (cFetched == 0)
            return S_OK;
        const VSS_PROVIDER_PROP& p = prop.Obj.Prov;
        std::cout << "Provider name: '" << pal::Utf16ToUtf8(p.m_pwszProviderName) << "'\n"
                  << "   Provider type: " << TypeName(p.m_eProviderType) << "\n"
                  << "   Provider Id: " << GuidText(p.m_ProviderId) << "\n"
                  << "   Version: " << pal::Utf16ToUtf8(p.m_pwszProviderVersion) << "\n\n";
        CoTaskMemFree(p.m_pwszProviderName);
        CoTaskMemFree(p.m_pwszProviderVersion);
    }
}

HRESULT ListProviders()
{
    vsssim::CVssCoordinator coordinator;
    HRESULT hr = coordinator.Start();
    if (FAILED(hr))
        return hr;
    IVssAdmin* pAdmin = nullptr;
    hr = CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin,
                          reinterpret_cast<void**>(&pAdmin));
    if (FAILED(hr))
        return hr;
    IVssEnumObject* pEnum = nullptr;
    hr = pAdmin->QueryProviders(&pEnum);
    pAdmin->Release();
    if (FAILED(hr))
        return hr;
    hr = PrintProviders(pEnum);
    pEnum->Release();
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
