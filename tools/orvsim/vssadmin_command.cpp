// `orvsim vssadmin list providers`: the providers registered with the VSS coordinator, with
// vssadmin's output. The tool serves the coordinator in its own process and queries it as
// vssadmin does, through IVssAdmin; the registrations are the machine's, under its root.
#include "command.h"

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

std::string Lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

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

std::string GuidText(const GUID& guid)
{
    WCHAR sz[39];
    StringFromGUID2(guid, sz, 39);
    return Lower(pal::Utf16ToUtf8(sz));
}

// vssadmin's line for a failure, on one line as every orvsim failure.
int Fail(HRESULT hr)
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
            "vssadmin", "The VSS coordinator, with vssadmin's syntax and output: list providers");
        // vssadmin's commands are words in any case ("List Providers"), left for Run to read.
        m_pVssadmin->prefix_command();
    }

    bool Selected() const override { return m_pVssadmin->parsed(); }

    int Run() override
    {
        std::vector<std::string> words = m_pVssadmin->remaining();
        std::cout << kBanner;
        if (words.size() != 2 || Lower(words[0]) != "list" || Lower(words[1]) != "providers") {
            std::cout.flush();
            std::cerr << "Error: Invalid command.\n";
            return 1;
        }
        if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
            return Fail(E_UNEXPECTED);
        HRESULT hr = ListProviders();
        CoUninitialize();
        if (FAILED(hr))
            return Fail(hr);
        std::cout.flush();
        return std::cout ? 0 : 1;
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
