// `orvsim storage`: the simulated storage management service and its storage systems: set up
// the topology, show the state, inject faults, and write or read a LUN's data for checks.
#include "codes.h"
#include "command.h"

#include "sim/storage/simcodes.h"
#include "sim/storage/storagesim.h"
#include "sim/vss/vsssim.h"
#include "store/tessera.h"

#include "pal/palcontrol.h"

#include <fstream>
#include <iostream>
#include <sstream>

namespace orvsim {

namespace {

int Fail(const std::string& message)
{
    std::cerr << "ERROR: " << message << "\n";
    return 1;
}

// "filer:/vol/v/lun" into its two parts.
bool SplitLun(const std::string& text, std::string* pFiler, std::string* pPath)
{
    size_t colon = text.find(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size())
        return false;
    *pFiler = text.substr(0, colon);
    *pPath = text.substr(colon + 1);
    return true;
}

std::string YesNo(bool f)
{
    return f ? "yes" : "no";
}

void PrintText(const storagesim::StateView& view, const std::vector<storagesim::FaultInfo>& faults)
{
    std::cout << "Tessera " << view.version << " on " << view.machine << " (Hyper-V role "
              << (view.fHyperVRoleEnabled ? "enabled" : "not enabled") << ", hand-off "
              << view.handoff << ", cut " << view.cut << ")\n";
    std::cout << "\nFilers\n";
    for (const auto& f : view.filers)
        std::cout << "  " << f.name << "  unlocked clones: " << YesNo(f.fUnlockedClone)
                  << "  backup snapshots: " << YesNo(f.fBackupSnapshots) << "\n";
    std::cout << "\nLUNs\n";
    for (const auto& l : view.luns)
        if (l.snapshot.empty())
            std::cout << "  " << l.filer << ":" << l.path << "  serial " << l.serial << "  "
                      << l.vendor << " " << l.product << " " << l.revision << "  "
                      << l.ullSize / (1024 * 1024) << " MiB\n";
    std::cout << "\nSnapshots\n";
    for (const auto& s : view.snapshots) {
        std::cout << "  " << s.filer << ":" << s.lunPath << "  " << s.name << "  kind " << s.dwKind;
        if (!s.targetPath.empty())
            std::cout << "  target " << s.targetPath << " (" << s.targetSerial << ")";
        std::cout << "\n";
    }
    std::cout << "\nTarget LUNs\n";
    for (const auto& l : view.luns)
        if (!l.snapshot.empty())
            std::cout << "  " << l.filer << ":" << l.path << "  serial " << l.serial
                      << "  snapshot " << l.snapshot << "  "
                      << (l.fWritable ? "read-write" : "read-only") << "\n";
    std::cout << "\nHost disks\n";
    for (const auto& d : view.disks) {
        std::string mountPoints;
        for (const auto& m : d.mountPoints)
            mountPoints += (mountPoints.empty() ? "" : ",") + m;
        std::cout << "  " << (mountPoints.empty() ? "-" : mountPoints) << "  ";
        if (d.filer.empty())
            std::cout << d.vendor << " " << d.serial << " (not managed)";
        else
            std::cout << d.filer << ":" << d.path;
        std::cout << "  " << (d.transport == "fc" ? "FC" : "iSCSI") << " " << int(d.port) << ":"
                  << int(d.bus) << ":" << int(d.target) << ":" << int(d.lun);
        if (d.fReadonly)
            std::cout << "  read-only";
        if (d.fShared)
            std::cout << "  shared";
        if (!d.snapshot.empty())
            std::cout << "  backed by snapshot " << d.snapshot;
        std::cout << "\n";
    }
    std::cout << "\nDatasets\n";
    for (const auto& t : view.datasets)
        std::cout << "  " << t.tag << "  " << t.drive << "\n";
    std::cout << "\nFaults\n";
    for (const auto& f : faults) {
        std::cout << "  " << f.method << "  " << f.kind;
        if (f.kind == "fail")
            std::cout << " " << Hex(f.hr);
        if (f.kind == "delay")
            std::cout << " " << f.dwDelayMs << " ms";
        if (f.lRemaining == storagesim::kEveryCall)
            std::cout << "  every call\n";
        else
            std::cout << "  next " << f.lRemaining << " call(s)\n";
    }
}

// Bytes as text: printable characters as they are, others as '.'.
std::string Printable(const std::string& data)
{
    std::string text;
    for (char c : data)
        text.push_back(c >= 0x20 && c < 0x7F ? c : '.');
    return text;
}

class StorageCommand : public Command
{
public:
    explicit StorageCommand(CLI::App& app)
    {
        m_pStorage = app.add_subcommand(
            "storage", "The simulated storage service: topology, state, faults and LUN data");
        m_pStorage->require_subcommand(1);

        m_pInit = m_pStorage->add_subcommand(
            "init", "Replace the storage state with a topology (default: the built-in one)");
        m_pInit->add_option("--topology", m_topologyFile, "A topology file (JSON)")
            ->check(CLI::ExistingFile);
        m_pInit->add_option("--version", m_version,
                            "The service version written to Software\\Halvern\\Tessera");

        m_pShow = m_pStorage->add_subcommand(
            "show", "Show filers, LUNs, snapshots, target LUNs, host disks and faults");
        m_pShow->add_flag("--json", m_fJson, "The state as JSON");

        m_pFail = m_pStorage->add_subcommand("fail", "Make a method of the service fail");
        m_pFail->add_option("METHOD", m_method, "The method, e.g. EnumVirtualDisks")
            ->required()
            ->check(CLI::IsMember(storagesim::FaultableMethods()));
        m_pFail->add_option("CODE", m_code, "The HRESULT, e.g. 0x80070005 or E_ACCESSDENIED")
            ->required();
        m_pFail->add_option("--times", m_lTimes, "Only the next N calls (default: every call)")
            ->check(CLI::PositiveNumber);

        m_pDelay = m_pStorage->add_subcommand("delay", "Delay a method of the service");
        m_pDelay->add_option("METHOD", m_method, "The method")
            ->required()
            ->check(CLI::IsMember(storagesim::FaultableMethods()));
        m_pDelay->add_option("MILLISECONDS", m_dwDelayMs, "The delay")->required();
        m_pDelay->add_option("--times", m_lTimes, "Only the next N calls (default: every call)")
            ->check(CLI::PositiveNumber);

        m_pHandoff = m_pStorage->add_subcommand(
            "handoff", "How the creation hands off: progress (code 43), ready (OnKVXSnapReady), "
                       "both; or the faults never (it stops before the hand-off) and twice");
        m_pHandoff->add_option("MODE", m_handoff)
            ->required()
            ->check(CLI::IsMember({"progress", "ready", "both", "never", "twice"}));
        m_pHandoff->add_option("--times", m_lTimes, "never and twice: only the next N creations")
            ->check(CLI::PositiveNumber);

        m_pCut = m_pStorage->add_subcommand(
            "cut", "How the snapshot is cut: copy (recorded before the creation answers) or "
                   "instant (copy-on-write, recorded just after)");
        m_pCut->add_option("MODE", m_cut)->required()->check(CLI::IsMember({"copy", "instant"}));

        m_pHyperV = m_pStorage->add_subcommand("hyperv", "Set the host's Hyper-V role");
        m_pHyperV->add_option("STATE", m_hyperV)
            ->required()
            ->check(CLI::IsMember({"enabled", "disabled", "absent"}));

        m_pClear = m_pStorage->add_subcommand("clear-faults", "Remove every injected fault");

        m_pWrite = m_pStorage->add_subcommand("write", "Write text into a LUN's data");
        AddLunOptions(m_pWrite);
        m_pWrite->add_option("TEXT", m_text, "The bytes to write")->required();

        m_pRead = m_pStorage->add_subcommand(
            "read", "Read a LUN's data, or a snapshot's (non-printable bytes as '.')");
        AddLunOptions(m_pRead);
        m_pRead->add_option("--snapshot", m_snapshot, "Read this snapshot of the LUN instead");
        m_pRead->add_option("--length", m_dwLength, "Bytes to read (default 64)");
    }

    bool Selected() const override { return m_pStorage->parsed(); }

    int Run() override
    {
        if (m_pInit->parsed())
            return RunInit();
        if (m_pShow->parsed())
            return RunShow();
        if (m_pFail->parsed())
            return RunFail();
        if (m_pDelay->parsed())
            return Done(storagesim::SetDelay(m_method, m_dwDelayMs, m_lTimes),
                        "The delay cannot be set");
        if (m_pHandoff->parsed())
            return RunHandoff();
        if (m_pCut->parsed())
            return Done(storagesim::SetCut(m_cut == "instant" ? storagesim::Cut::kInstant
                                                              : storagesim::Cut::kCopy),
                        "The cut cannot be set");
        if (m_pHyperV->parsed())
            return Done(storagesim::SetHyperV(m_hyperV != "absent", m_hyperV == "enabled"),
                        "The Hyper-V role cannot be set");
        if (m_pClear->parsed())
            return Done(storagesim::ClearFaults(), "The faults cannot be cleared");
        if (m_pWrite->parsed())
            return RunWrite();
        return RunRead();
    }

private:
    void AddLunOptions(CLI::App* pCommand)
    {
        auto* pLun = pCommand->add_option("--lun", m_lun, "The LUN as FILER:PATH");
        auto* pDrive = pCommand->add_option("--drive", m_drive, "The LUN mounted at this drive");
        pLun->excludes(pDrive);
        pCommand->add_option("--offset", m_dwOffset, "Byte offset in the LUN (default 0)");
    }

    static int Done(HRESULT hr, const std::string& what)
    {
        if (FAILED(hr))
            return FailHr(what, hr);
        std::cout << "The operation completed successfully.\n";
        return 0;
    }

    int RunInit()
    {
        std::string topology;
        if (!m_topologyFile.empty()) {
            std::ifstream file(m_topologyFile);
            std::stringstream text;
            text << file.rdbuf();
            if (!file)
                return Fail("The topology file cannot be read.");
            topology = text.str();
        }
        std::string message;
        HRESULT hr = storagesim::InitializeState(topology, m_version, &message);
        if (SUCCEEDED(hr) && FAILED(hr = storagesim::InstallService()))
            message = "The service's version cannot be written to the registry.";
        if (FAILED(hr))
            return Fail(message.empty() ? "The storage state cannot be set up (" + Hex(hr) + ")."
                                        : message);
        std::cout << "The operation completed successfully.\n";
        return 0;
    }

    int RunShow()
    {
        storagesim::StateView view;
        std::vector<storagesim::FaultInfo> faults;
        HRESULT hr = storagesim::ReadState(&view);
        if (SUCCEEDED(hr))
            hr = storagesim::ListFaults(&faults);
        if (FAILED(hr))
            return FailHr("The storage state cannot be read", hr);
        if (m_fJson)
            std::cout << storagesim::StateToJson(view) << "\n";
        else
            PrintText(view, faults);
        return 0;
    }

    int RunFail()
    {
        HRESULT hr = S_OK;
        if (!ParseCode(m_code, &hr) || SUCCEEDED(hr))
            return Fail("CODE must be a failure HRESULT, such as 0x80070005 or E_ACCESSDENIED.");
        return Done(storagesim::SetFault(m_method, hr, m_lTimes), "The fault cannot be set");
    }

    int RunHandoff()
    {
        if (m_handoff == "never" || m_handoff == "twice")
            return Done(storagesim::SetHandoffFault(m_handoff == "never"
                                                        ? storagesim::HandoffFault::kNever
                                                        : storagesim::HandoffFault::kTwice,
                                                    m_lTimes),
                        "The fault cannot be set");
        return Done(storagesim::SetHandoff(m_handoff == "ready"  ? storagesim::Handoff::kReady
                                           : m_handoff == "both" ? storagesim::Handoff::kBoth
                                                                 : storagesim::Handoff::kProgress),
                    "The hand-off cannot be set");
    }

    // The LUN named by --lun or --drive.
    bool ResolveLun(std::string* pFiler, std::string* pPath, int* pExit)
    {
        if (!m_lun.empty()) {
            if (SplitLun(m_lun, pFiler, pPath))
                return true;
            *pExit = Fail("--lun must be FILER:PATH, such as verdane01:/vol/vol1/lun1.");
            return false;
        }
        if (m_drive.empty()) {
            *pExit = Fail("Name the LUN with --lun FILER:PATH or --drive DRIVE.");
            return false;
        }
        // "E:" names the drive "E:\" as the host does.
        std::string drive = m_drive;
        if (drive.back() != '\\')
            drive.push_back('\\');
        HRESULT hr = storagesim::FindLunByDrive(drive, pFiler, pPath);
        if (FAILED(hr)) {
            *pExit = FailHr("No LUN of the service is mounted at " + m_drive, hr);
            return false;
        }
        return true;
    }

    int RunWrite()
    {
        std::string filer, path;
        int exitCode = 1;
        if (!ResolveLun(&filer, &path, &exitCode))
            return exitCode;
        // A drive is written as the host writes it: a shadow copy's drive is read-only and a
        // write waits while VSS holds the volume's writes.
        return Done(m_lun.empty()
                        ? vsssim::WriteVolumeData(pal::Utf8ToUtf16(m_drive), m_dwOffset, m_text)
                        : storagesim::WriteLunData(filer, path, m_dwOffset, m_text),
                    "The data cannot be written");
    }

    int RunRead()
    {
        std::string filer, path;
        int exitCode = 1;
        if (!ResolveLun(&filer, &path, &exitCode))
            return exitCode;
        std::string data;
        HRESULT hr =
            !m_snapshot.empty() ? storagesim::ReadSnapshotData(filer, path, m_snapshot, m_dwOffset,
                                                               m_dwLength, &data)
            : m_lun.empty()
                ? vsssim::ReadVolumeData(pal::Utf8ToUtf16(m_drive), m_dwOffset, m_dwLength, &data)
                : storagesim::ReadLunData(filer, path, m_dwOffset, m_dwLength, &data);
        if (FAILED(hr))
            return FailHr("The data cannot be read", hr);
        std::cout << Printable(data) << "\n";
        return 0;
    }

    CLI::App* m_pStorage = nullptr;
    CLI::App* m_pInit = nullptr;
    CLI::App* m_pShow = nullptr;
    CLI::App* m_pFail = nullptr;
    CLI::App* m_pDelay = nullptr;
    CLI::App* m_pHandoff = nullptr;
    CLI::App* m_pCut = nullptr;
    CLI::App* m_pHyperV = nullptr;
    CLI::App* m_pClear = nullptr;
    CLI::App* m_pWrite = nullptr;
    CLI::App* m_pRead = nullptr;

    std::string m_topologyFile;
    std::string m_version;
    bool m_fJson = false;
    std::string m_method;
    std::string m_code;
    LONG m_lTimes = storagesim::kEveryCall;
    DWORD m_dwDelayMs = 0;
    std::string m_handoff;
    std::string m_cut;
    std::string m_hyperV;
    std::string m_lun;
    std::string m_drive;
    std::string m_snapshot;
    std::string m_text;
    DWORD m_dwOffset = 0;
    DWORD m_dwLength = 64;
};

} // namespace

std::unique_ptr<Command> AddStorageCommand(CLI::App& app)
{
    return std::make_unique<StorageCommand>(app);
}

} // namespace orvsim
