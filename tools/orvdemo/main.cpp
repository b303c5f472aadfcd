// orvdemo: a whole persistent shadow copy of E: on a fresh machine, told as a short story.
//
// The program plays VSS (the simulation in sim/vss) and the host: it installs the provider as a
// service, makes a shadow copy of E: while a writer thread keeps changing E:, exposes it as X:,
// shows that X: holds what E: held at the commit, deletes it, and reports the provider's phases
// from its trace, the events it wrote, the service's states and the storage left behind. The
// exit code is 0 only when every check held.
//
//   orvdemo --root DIR [--orvprov PATH]
#include "storyline.h"
#include "tracephases.h"
#include "writer.h"

#include "sim/storage/storagesim.h"
#include "sim/vss/vsssim.h"

#include "pal/objbase.h"
#include "pal/palcontrol.h"
#include "pal/paleventlog.h"
#include "pal/synchapi.h"
#include "pal/sysinfoapi.h"
#include "pal/winreg.h"
#include "pal/winsvc.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace orvdemo {

namespace {

constexpr LONG kPersistent =
    LONG{VSS_CTX_BACKUP} | VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE;
constexpr DWORD kTraceMask = 4; // entry and exit of every traced operation
constexpr ULONGLONG kServiceStopMs = 60 * 1000;
// The provider service's events of its start and its stop.
constexpr DWORD kEventServiceStarted = 4104;
constexpr DWORD kEventServiceStopped = 4105;

class CDemo
{
public:
    CDemo(std::filesystem::path root, std::string orvprov)
        : m_root(std::move(root)), m_orvprov(std::move(orvprov))
    {}
    CDemo(const CDemo&) = delete;
    CDemo& operator=(const CDemo&) = delete;
    ~CDemo()
    {
        CloseServiceHandle(m_hService);
        CloseServiceHandle(m_hManager);
    }

    int Run()
    {
        m_story.Title("orvdemo: a persistent shadow copy of E: through the Orvane provider");
        if (!Setup() || !MakeShadowCopy() || !Expose() || !Delete())
            return m_story.Finish();
        TellPhases();
        TellEvents();
        TellService();
        return m_story.Finish();
    }

private:
    bool Setup()
    {
        std::error_code ec;
        std::filesystem::remove_all(m_root, ec);
        std::filesystem::create_directories(m_root / "Program Files" / "Orvane", ec);
        setenv("ORVSIM_ROOT", m_root.c_str(), 1);
        if (!m_story.Check("storage initialised", storagesim::InitializeState("", "")))
            return false;
        storagesim::StateView view;
        storagesim::ReadState(&view);
        m_cLuns = view.luns.size();
        m_cDisks = view.disks.size();

        m_provDir = m_root / "Program Files" / "Orvane";
        std::filesystem::copy_file(m_orvprov, m_provDir / "orvprov", ec);
        const std::string install = "\"" + (m_provDir / "orvprov").string() +
                                    "\" -r service -a LocalSystem > \"" +
                                    (m_root / "install.log").string() + "\" 2>&1";
        if (!m_story.Check("provider installed (see install.log)",
                           !ec && std::system(install.c_str()) == 0))
            return false;
        // The provider reads its trace level from its parameters when its service starts.
        HKEY hKey = nullptr;
        LSTATUS ls = RegCreateKeyExW(HKEY_LOCAL_MACHINE,
                                     u"System\\CurrentControlSet\\Services\\Orvhwsvc\\Parameters",
                                     0, nullptr, 0, KEY_SET_VALUE, nullptr, &hKey, nullptr);
        if (ls == ERROR_SUCCESS) {
            ls = RegSetValueExW(hKey, u"TraceMask", 0, REG_DWORD,
                                reinterpret_cast<const BYTE*>(&kTraceMask), sizeof(kTraceMask));
            RegCloseKey(hKey);
        }
        if (!m_story.Check("trace turned on", HRESULT_FROM_WIN32(ls)))
            return false;
        m_hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
        m_hService =
            m_hManager ? OpenServiceW(m_hManager, u"Orvhwsvc", SERVICE_QUERY_STATUS) : nullptr;
        m_dwStateBefore = ServiceState();
        m_story.Line("Setup", std::to_string(view.filers.size()) + " filers, " +
                                  std::to_string(m_cLuns) + " LUNs, " + std::to_string(m_cDisks) +
                                  " host disks; provider installed as service Orvhwsvc (" +
                                  StateName(m_dwStateBefore) + "), TraceMask=4");
        return m_story.Check("service installed and stopped", m_dwStateBefore == SERVICE_STOPPED);
    }

    bool MakeShadowCopy()
    {
        if (!m_story.Check("E: stamped", vsssim::WriteVolumeData(u"E:", 0, CWriter::Stamp(0))))
            return false;
        CWriter writer(u"E:");
        writer.Start();
        VSS_ID setId = GUID_NULL;
        std::vector<VSS_ID> ids;
        HRESULT hr = vsssim::CreateShadowCopySet({u"E:"}, kPersistent, &setId, &ids);
        const vsssim::SetMeasures measures = vsssim::LastSetMeasures();
        // A few writes after the release show E: moving on.
        const ULONGLONG ullGiveUp = GetTickCount64() + 10000;
        while (SUCCEEDED(hr) && writer.CountEndedSince(measures.ullReleasedTick) < 3 &&
               SUCCEEDED(writer.Failure()) && GetTickCount64() < ullGiveUp)
            Sleep(1);
        writer.Stop();
        if (!m_story.Check("shadow copy set made", hr) ||
            !m_story.Check("writer kept writing", writer.Failure()))
            return false;
        m_snapshotId = ids[0];
        m_story.Line("Set", vsssim::GuidText(setId) + " made in " + Ms(measures.llSetNs) +
                                ", writes to E: held for " + Ms(measures.llHoldNs));
        m_records = writer.Records();
        m_ullHeld = measures.ullHeldTick;
        m_ullReleased = measures.ullReleasedTick;
        m_llHoldNs = measures.llHoldNs;
        return true;
    }

    bool Expose()
    {
        std::u16string exposed;
        if (!m_story.Check("exposed as X:",
                           vsssim::ExposeShadowCopy(m_snapshotId, u"X:", &exposed)))
            return false;
        std::string onX, onE;
        if (!m_story.Check("X: read",
                           vsssim::ReadVolumeData(exposed, 0, CWriter::kStampBytes, &onX)) ||
            !m_story.Check("E: read", vsssim::ReadVolumeData(u"E:", 0, CWriter::kStampBytes, &onE)))
            return false;
        const ULONG ulHeld = CWriter::Generation(onX);
        const ULONG ulNow = CWriter::Generation(onE);
        // The platform clock orders the writer's readings and VSS's: a write that began after
        // the hold ends after the release, and the write X: shows began before the hold.
        const WriteRecord* pHeld = Find(ulHeld);
        const WriteRecord* pNext = Find(ulHeld + 1);
        bool fNoneInside = true;
        for (const WriteRecord& record : m_records)
            fNoneInside = fNoneInside &&
                          (record.ullStartTick <= m_ullHeld || record.ullEndTick >= m_ullReleased);
        m_story.Line("Expose", "X: is the target LUN's disk, read-only; X: holds \"" + onX +
                                   "\", E: holds \"" + onE + "\"");
        if (pHeld && pNext)
            m_story.Line("", "writer: gen " + std::to_string(ulHeld) + " began " +
                                 std::to_string(m_ullHeld - pHeld->ullStartTick) +
                                 " ms before the hold; gen " + std::to_string(ulHeld + 1) +
                                 " waited " +
                                 std::to_string(pNext->ullEndTick - pNext->ullStartTick) +
                                 " ms and ended after the release");
        m_story.Check("X: holds what E: held at the commit",
                      pHeld && pHeld->ullStartTick <= m_ullHeld && pNext &&
                          pNext->ullEndTick >= m_ullReleased);
        m_story.Check("no write landed while writes were held", fNoneInside);
        m_story.Check("E: moved on after the commit", ulNow > ulHeld);
        m_story.Check("X: refuses writes", vsssim::WriteVolumeData(exposed, 0, "x") ==
                                               HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT));
        return true;
    }

    bool Delete()
    {
        if (!m_story.Check("shadow copy deleted", vsssim::DeleteShadowCopy(m_snapshotId)))
            return false;
        storagesim::StateView view;
        std::vector<vsssim::ShadowCopyInfo> copies;
        storagesim::ReadState(&view);
        vsssim::QueryShadowCopies(&copies);
        std::string unused;
        const bool fGone = FAILED(vsssim::ReadVolumeData(u"X:", 0, 1, &unused));
        m_story.Line("Delete", "left behind: " + std::to_string(view.snapshots.size()) +
                                   " snapshots, " + std::to_string(view.luns.size() - m_cLuns) +
                                   " target LUNs, " + std::to_string(view.disks.size() - m_cDisks) +
                                   " new disks, " + std::to_string(copies.size()) +
                                   " shadow copies; X: " + (fGone ? "gone" : "still there"));
        return m_story.Check("nothing left behind",
                             view.snapshots.empty() && view.luns.size() == m_cLuns &&
                                 view.disks.size() == m_cDisks && copies.empty() && fGone);
    }

    const WriteRecord* Find(ULONG ulGeneration) const
    {
        for (const WriteRecord& record : m_records)
            if (record.ulGeneration == ulGeneration)
                return &record;
        return nullptr;
    }

    void TellPhases()
    {
        // The service writes its trace as it runs; it has ended before the file is read.
        WaitForServiceStop();
        std::vector<TracePhase> phases = ReadTracePhases(m_provDir.string());
        m_story.Line("Phases", "the provider's calls from its trace, entered to exited:");
        // Each loading of the provider ends with OnUnload: first the set, then the deletion.
        const char* const kRuns[] = {"set: ", "deletion: "};
        size_t iRun = 0;
        std::string row;
        for (const TracePhase& phase : phases) {
            std::string cell = phase.name + " " + std::to_string(phase.lMilliseconds);
            if (row.empty())
                row = iRun < 2 ? kRuns[iRun] : "";
            else if (row.size() + cell.size() > 84) {
                m_story.Line("", row + ",");
                row = "  ";
            } else
                row += ", ";
            row += cell;
            if (phase.name == "OnUnload") {
                m_story.Line("", row + " (ms)");
                row.clear();
                ++iRun;
            }
        }
        if (!row.empty())
            m_story.Line("", row + " (ms)");
        m_story.Line("", "CommitSnapshots: no trace while writes are held; VSS measured " +
                             Ms(m_llHoldNs));
        bool fCommit = false;
        for (const TracePhase& phase : phases)
            fCommit = fCommit || phase.name == "PostCommitSnapshots";
        m_story.Check("trace shows the set's phases", fCommit);
    }

    void TellEvents()
    {
        std::vector<pal::EventLogRecord> records;
        pal::ReadEventLog({}, &records);
        // Each kind once, in the order it first came, with how often it came.
        std::vector<std::pair<const pal::EventLogRecord*, int>> kinds;
        for (const pal::EventLogRecord& record : records) {
            auto it = std::find_if(kinds.begin(), kinds.end(), [&](const auto& kind) {
                return kind.first->dwEventId == record.dwEventId &&
                       kind.first->source == record.source;
            });
            if (it == kinds.end())
                kinds.push_back({&record, 1});
            else
                ++it->second;
            m_cStarts += (record.dwEventId & 0xFFFF) == kEventServiceStarted ? 1 : 0;
            m_cStops += (record.dwEventId & 0xFFFF) == kEventServiceStopped ? 1 : 0;
        }
        m_story.Line("Events", std::to_string(records.size()) +
                                   " in the machine's event log (each kind once, times seen):");
        for (const auto& [pRecord, count] : kinds)
            m_story.Line("", std::to_string(count) + "x " + EventSummary(*pRecord));
        m_story.Check("the provider wrote events", !records.empty());
    }

    void TellService()
    {
        const DWORD dwNow = ServiceState();
        m_story.Line("Service", "Orvhwsvc " + StateName(m_dwStateBefore) +
                                    " at first; started by COM's activation " +
                                    std::to_string(m_cStarts) +
                                    "x (set, deletion), stopped by itself " +
                                    std::to_string(m_cStops) + "x; " + StateName(dwNow) + " now");
        m_story.Check("service started by activation and stopped by itself",
                      m_cStarts >= 2 && m_cStops == m_cStarts && dwNow == SERVICE_STOPPED);
    }

    void WaitForServiceStop()
    {
        const ULONGLONG ullGiveUp = GetTickCount64() + kServiceStopMs;
        while (ServiceState() != SERVICE_STOPPED && GetTickCount64() < ullGiveUp)
            Sleep(10);
    }

    DWORD ServiceState() const
    {
        SERVICE_STATUS status = {};
        return m_hService && QueryServiceStatus(m_hService, &status) ? status.dwCurrentState : 0;
    }

    std::filesystem::path m_root;
    std::filesystem::path m_provDir;
    std::string m_orvprov;
    CStoryline m_story;
    SC_HANDLE m_hManager = nullptr;
    SC_HANDLE m_hService = nullptr;
    DWORD m_dwStateBefore = 0;
    size_t m_cLuns = 0;
    size_t m_cDisks = 0;
    VSS_ID m_snapshotId = GUID_NULL;
    std::vector<WriteRecord> m_records;
    ULONGLONG m_ullHeld = 0;
    ULONGLONG m_ullReleased = 0;
    LONGLONG m_llHoldNs = 0;
    int m_cStarts = 0;
    int m_cStops = 0;
};

} // namespace

} // namespace orvdemo

int main(int argc, char** argv)
{
    // The provider built beside this program, unless another is named.
    std::string root, orvprov = ORVPROV_EXE;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--root")
            root = argv[i + 1];
        else if (option == "--orvprov")
            orvprov = argv[i + 1];
    }
    if (root.empty() || orvprov.empty()) {
        std::fprintf(stderr, "usage: orvdemo --root DIR [--orvprov PATH]\n");
        return 2;
    }
    std::filesystem::path rootPath = std::filesystem::absolute(root);
    setenv("ORVSIM_ROOT", rootPath.c_str(), 1);
    pal::CaptureDebugOutput(true);
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        std::fprintf(stderr, "orvdemo: COM cannot be initialised\n");
        return 1;
    }
    int exitCode = orvdemo::CDemo(rootPath, orvprov).Run();
    CoUninitialize();
    return exitCode;
}
