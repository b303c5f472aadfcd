// `orvsim vss`: the simulated VSS's faults (a writer's veto, a call of the provider that fails,
// the hold of writes, VSS's process ending at a point of the set), and a requester of its own to
// make a set and import a transportable one, so that a fault's effect can be seen from the shell.
#include "codes.h"
#include "command.h"

#include "sim/vss/vsssim.h"

#include "pal/objbase.h"

#include <fstream>
#include <iostream>
#include <sstream>

namespace orvsim {

namespace {

class VssCommand final : public Command
{
public:
    explicit VssCommand(CLI::App& app)
    {
        m_pVss = app.add_subcommand("vss", "The simulated VSS: faults, and sets made from here");
        m_pVss->require_subcommand(1);
        m_pFault = m_pVss->add_subcommand(
            "fault", "Inject a fault: RegisterProvider, UnregisterProvider, QueryProviders, "
                     "Writer:PrepareForSnapshot|Freeze|Thaw (a writer's veto), Call:<method> "
                     "(VSS's call of the provider fails), HoldWrites, Kill:<method or writer "
                     "event> (VSS's process ends there, CODE its exit code)");
        m_pFault->add_option("NAME", m_name, "The rule's name, e.g. Writer:Freeze")->required();
        m_pFault->add_option("CODE", m_code, "The HRESULT, e.g. VSS_E_WRITERERROR_RETRYABLE")
            ->required();
        m_pFault->add_option("--times", m_lTimes, "Only the next N times (default: every time)")
            ->check(CLI::PositiveNumber);
        m_pClear = m_pVss->add_subcommand("clear-faults", "Remove every injected fault");
        m_pList = m_pVss->add_subcommand("faults", "List the injected faults");

        m_pCreate = m_pVss->add_subcommand("create", "Make a shadow copy set of volumes");
        m_pCreate->add_option("VOLUME", m_volumes, "Drives or mount points, e.g. E:")->required();
        m_pCreate->add_option("--context", m_lContext,
                              "The context with its attributes (default: persistent backup, 9)");
        m_pCreate->add_option("--document", m_document,
                              "Write a transportable set's backup components document here");
        m_pImport = m_pVss->add_subcommand("import", "Import a transportable set on this host");
        m_pImport->add_option("DOCUMENT", m_document, "The backup components document")
            ->required()
            ->check(CLI::ExistingFile);
    }

    bool Selected() const override { return m_pVss->parsed(); }

    int Run() override
    {
        if (m_pFault->parsed())
            return RunFault();
        if (m_pClear->parsed()) {
            HRESULT hr = vsssim::ClearFaults();
            return FAILED(hr) ? FailHr("The faults cannot be cleared", hr) : 0;
        }
        if (m_pList->parsed())
            return RunList();
        if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
            return FailHr("COM cannot be initialised", E_FAIL);
        int result = m_pCreate->parsed() ? RunCreate() : RunImport();
        CoUninitialize();
        return result;
    }

private:
    int RunFault()
    {
        HRESULT hr = S_OK;
        if (!ParseCode(m_code, &hr)) {
            std::cerr << "ERROR: CODE must be an HRESULT, such as 0x800423F3 or "
                         "VSS_E_WRITERERROR_RETRYABLE.\n";
            return 1;
        }
        hr = vsssim::SetFault(m_name, hr, m_lTimes);
        return FAILED(hr) ? FailHr("The fault cannot be set: unknown name " + m_name, hr) : 0;
    }

    int RunList()
    {
        std::vector<vsssim::FaultRule> rules;
        HRESULT hr = vsssim::ListFaults(&rules);
        if (FAILED(hr))
            return FailHr("The faults cannot be read", hr);
        for (const auto& rule : rules)
            std::cout << rule.name << " " << Hex(rule.hr) << " "
                      << (rule.lRemaining == vsssim::kEveryCall ? std::string("every time")
                                                                : std::to_string(rule.lRemaining))
                      << "\n";
        return 0;
    }

    int RunCreate()
    {
        std::vector<std::u16string> volumes;
        for (const std::string& volume : m_volumes)
            volumes.emplace_back(volume.begin(), volume.end());
        VSS_ID setId = GUID_NULL;
        std::vector<VSS_ID> ids;
        std::string document;
        HRESULT hr = vsssim::CreateShadowCopySet(volumes, m_lContext, &setId, &ids, &document);
        if (FAILED(hr))
            return FailHr("The shadow copy set was not made", hr);
        std::cout << "Shadow copy set " << vsssim::GuidText(setId) << "\n";
        for (const VSS_ID& id : ids)
            std::cout << "Shadow copy " << vsssim::GuidText(id) << "\n";
        if (!m_document.empty()) {
            std::ofstream file(m_document, std::ios::binary);
            file << document;
        }
        return 0;
    }

    int RunImport()
    {
        std::ifstream file(m_document, std::ios::binary);
        std::stringstream text;
        text << file.rdbuf();
        VSS_ID setId = GUID_NULL;
        HRESULT hr = vsssim::ImportShadowCopySet(text.str(), &setId);
        if (FAILED(hr))
            return FailHr("The shadow copy set was not imported", hr);
        std::cout << "Imported shadow copy set " << vsssim::GuidText(setId) << "\n";
        return 0;
    }

    CLI::App* m_pVss = nullptr;
    CLI::App* m_pFault = nullptr;
    CLI::App* m_pClear = nullptr;
    CLI::App* m_pList = nullptr;
    CLI::App* m_pCreate = nullptr;
    CLI::App* m_pImport = nullptr;
    std::string m_name, m_code, m_document;
    LONG m_lTimes = vsssim::kEveryCall;
    std::vector<std::string> m_volumes;
    LONG m_lContext =
        LONG{VSS_CTX_BACKUP} | VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE;
};

} // namespace

std::unique_ptr<Command> AddVssCommand(CLI::App& app)
{
    return std::make_unique<VssCommand>(app);
}

} // namespace orvsim
