// The state as orvsim and the tests see and change it: views, LUN data, settings and faults.
#include "diskrows.h"
#include "images.h"
#include "simcodes.h"
#include "state.h"
#include "storagesim.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>

namespace storagesim {

using detail::CState;
using detail::WithState;

namespace {

HRESULT FindLunId(CState& state, const std::string& filer, const std::string& path,
                  LONGLONG* pllLun)
{
    auto f = state.Prepare("SELECT id FROM filers WHERE name = ?1");
    f.Bind(1, filer);
    if (!f.Step())
        return TESSERA_E_FILER_NOT_FOUND;
    auto s = state.Prepare("SELECT id FROM luns WHERE filer = ?1 AND path = ?2");
    s.Bind(1, f.Int(0)).Bind(2, path);
    if (!s.Step())
        return TESSERA_E_LUN_NOT_FOUND;
    *pllLun = s.Int(0);
    return S_OK;
}

bool InImage(DWORD dwOffset, size_t cb)
{
    return dwOffset <= kImageBytes && cb <= kImageBytes - dwOffset;
}

// Runs `operation` in one transaction on the LUN a caller names, once the range it touches is
// known to lie within the LUN's image.
HRESULT WithLunRange(bool fWrite, const std::string& filer, const std::string& lunPath,
                     DWORD dwOffset, size_t cb,
                     const std::function<HRESULT(CState&, LONGLONG)>& operation)
{
    if (!InImage(dwOffset, cb))
        return E_INVALIDARG;
    return WithState(fWrite, [&](CState& state) {
        LONGLONG llLun = 0;
        if (HRESULT hr = FindLunId(state, filer, lunPath, &llLun); FAILED(hr))
            return hr;
        return operation(state, llLun);
    });
}

HRESULT SetRule(const std::string& method, const char* kind, HRESULT hr, DWORD dwDelayMs,
                LONG lTimes)
{
    const auto& methods = FaultableMethods();
    if (std::find(methods.begin(), methods.end(), method) == methods.end() || lTimes == 0 ||
        lTimes < kEveryCall)
        return E_INVALIDARG;
    return WithState(true, [&](CState& state) {
        state
            .Prepare("INSERT OR REPLACE INTO faults(method, kind, code, delay_ms, remaining)"
                     " VALUES (?1, ?2, ?3, ?4, ?5)")
            .Bind(1, method)
            .Bind(2, kind)
            .Bind(3, hr)
            .Bind(4, dwDelayMs)
            .Bind(5, lTimes)
            .Run();
        return S_OK;
    });
}

} // namespace

HRESULT ReadState(StateView* pView)
{
    *pView = StateView();
    return WithState(false, [&](CState& state) {
        pView->version = state.Setting("version");
        pView->machine = state.Setting("machine");
        pView->fHyperVInstalled = state.Setting("hyperv_installed") == "1";
        pView->fHyperVRoleEnabled = state.Setting("hyperv_enabled") == "1";
        pView->handoff = state.Setting("handoff", "progress");
        pView->cut = state.Setting("cut", "copy");
        auto f = state.Prepare("SELECT name, unlocked_clone, backup_snapshots FROM filers"
                               " ORDER BY id");
        while (f.Step())
            pView->filers.push_back({f.Text(0), f.Int(1) != 0, f.Int(2) != 0});
        auto l = state.Prepare("SELECT f.name, l.path, l.serial, l.vendor, l.product, l.revision,"
                               " l.size, s.name, l.writable FROM luns l"
                               " JOIN filers f ON f.id = l.filer"
                               " LEFT JOIN snapshots s ON s.id = l.snapshot ORDER BY l.id");
        while (l.Step())
            pView->luns.push_back({l.Text(0), l.Text(1), l.Text(2), l.Text(3), l.Text(4), l.Text(5),
                                   static_cast<ULONGLONG>(l.Int(6)), l.Text(7), l.Int(8) != 0});
        auto s = state.Prepare("SELECT f.name, l.path, s.name, s.kind, s.target_path,"
                               " s.target_serial FROM snapshots s JOIN luns l ON l.id = s.lun"
                               " JOIN filers f ON f.id = l.filer ORDER BY s.id");
        while (s.Step())
            pView->snapshots.push_back({s.Text(0), s.Text(1), s.Text(2),
                                        static_cast<DWORD>(s.Int(3)), s.Text(4), s.Text(5)});
        auto d = state.Prepare(
            "SELECT f.name, l.path, d.vendor, d.serial, d.transport, d.port,"
            " d.bus, d.target, d.lunno, d.mount_points, d.readonly, d.shared,"
            " sn.name, d.product, d.revision FROM disks d LEFT JOIN luns l ON l.id = d.lun"
            " LEFT JOIN filers f ON f.id = l.filer"
            " LEFT JOIN snapshots sn ON sn.id = l.snapshot ORDER BY d.id");
        while (d.Step()) {
            DiskInfo disk;
            disk.filer = d.Text(0);
            disk.path = d.Text(1);
            disk.vendor = d.Text(2);
            disk.serial = d.Text(3);
            detail::ReadDiskAddress(d, 4, &disk);
            disk.snapshot = d.Text(12);
            disk.product = d.Text(13);
            disk.revision = d.Text(14);
            pView->disks.push_back(std::move(disk));
        }
        auto t = state.Prepare("SELECT tag, drive FROM datasets ORDER BY tag, drive");
        while (t.Step())
            pView->datasets.push_back({t.Text(0), t.Text(1)});
        return S_OK;
    });
}

std::string StateToJson(const StateView& view)
{
    using nlohmann::json;
    json root;
    root["version"] = view.version;
    root["host"] = {{"name", view.machine},
                    {"hyperVInstalled", view.fHyperVInstalled},
                    {"hyperVRoleEnabled", view.fHyperVRoleEnabled}};
    root["handoff"] = view.handoff;
    root["cut"] = view.cut;
    root["filers"] = json::array();
    for (const auto& f : view.filers)
        root["filers"].push_back({{"name", f.name},
                                  {"unlockedClone", f.fUnlockedClone},
                                  {"backupSnapshots", f.fBackupSnapshots}});
    root["luns"] = json::array();
    root["targetLuns"] = json::array();
    for (const auto& l : view.luns) {
        json lun = {{"filer", l.filer},   {"path", l.path},       {"serial", l.serial},
                    {"vendor", l.vendor}, {"product", l.product}, {"revision", l.revision},
                    {"size", l.ullSize}};
        if (l.snapshot.empty()) {
            root["luns"].push_back(lun);
        } else {
            lun["snapshot"] = l.snapshot;
            lun["writable"] = l.fWritable;
            root["targetLuns"].push_back(lun);
        }
    }
    root["snapshots"] = json::array();
    for (const auto& s : view.snapshots) {
        json snap = {
            {"filer", s.filer}, {"lunPath", s.lunPath}, {"name", s.name}, {"kind", s.dwKind}};
        if (!s.targetPath.empty())
            snap["target"] = {{"path", s.targetPath}, {"serial", s.targetSerial}};
        root["snapshots"].push_back(snap);
    }
    root["hostDisks"] = json::array();
    for (const auto& d : view.disks) {
        json disk = {{"vendor", d.vendor},
                     {"serial", d.serial},
                     {"transport", d.transport},
                     {"port", d.port},
                     {"bus", d.bus},
                     {"target", d.target},
                     {"lun", d.lun},
                     {"mountPoints", d.mountPoints},
                     {"readonly", d.fReadonly},
                     {"shared", d.fShared}};
        if (!d.filer.empty()) {
            disk["filer"] = d.filer;
            disk["path"] = d.path;
        }
        if (!d.snapshot.empty())
            disk["backedBySnapshot"] = d.snapshot;
        root["hostDisks"].push_back(disk);
    }
    root["datasets"] = json::array();
    for (const auto& t : view.datasets)
        root["datasets"].push_back({{"tag", t.tag}, {"drive", t.drive}});
    return root.dump(2);
}

HRESULT WriteLunData(const std::string& filer, const std::string& lunPath, DWORD dwOffset,
                     const std::string& data)
{
    return WithLunRange(true, filer, lunPath, dwOffset, data.size(), [&](CState&, LONGLONG llLun) {
        detail::WriteImage(detail::LunImagePath(llLun), dwOffset, data);
        return S_OK;
    });
}

HRESULT ReadLunData(const std::string& filer, const std::string& lunPath, DWORD dwOffset, DWORD cb,
                    std::string* pData)
{
    return WithLunRange(false, filer, lunPath, dwOffset, cb, [&](CState&, LONGLONG llLun) {
        *pData = detail::ReadImage(detail::LunImagePath(llLun), dwOffset, cb);
        return S_OK;
    });
}

HRESULT FindLunByDrive(const std::string& drive, std::string* pFiler, std::string* pLunPath)
{
    StateView view;
    if (HRESULT hr = ReadState(&view); FAILED(hr))
        return hr;
    for (const auto& disk : view.disks) {
        if (disk.filer.empty())
            continue;
        for (const auto& mountPoint : disk.mountPoints) {
            if (detail::EqualNoCase(mountPoint, drive)) {
                *pFiler = disk.filer;
                *pLunPath = disk.path;
                return S_OK;
            }
        }
    }
    return TESSERA_E_DRIVE_NOT_FOUND;
}

HRESULT ReadSnapshotData(const std::string& filer, const std::string& lunPath,
                         const std::string& snapshot, DWORD dwOffset, DWORD cb, std::string* pData)
{
    return WithLunRange(false, filer, lunPath, dwOffset, cb, [&](CState& state, LONGLONG llLun) {
        auto s = state.Prepare("SELECT id FROM snapshots WHERE lun = ?1 AND name = ?2");
        s.Bind(1, llLun).Bind(2, snapshot);
        if (!s.Step())
            return TESSERA_E_SNAPSHOT_NOT_FOUND;
        *pData = detail::ReadImage(detail::SnapshotImagePath(s.Int(0)), dwOffset, cb);
        return S_OK;
    });
}

HRESULT SetHandoff(Handoff handoff)
{
    return WithState(true, [&](CState& state) {
        state.SetSetting("handoff", handoff == Handoff::kReady  ? "ready"
                                    : handoff == Handoff::kBoth ? "both"
                                                                : "progress");
        return S_OK;
    });
}

HRESULT SetCut(Cut cut)
{
    return WithState(true, [&](CState& state) {
        state.SetSetting("cut", cut == Cut::kInstant ? "instant" : "copy");
        return S_OK;
    });
}

HRESULT SetHyperV(bool fInstalled, bool fRoleEnabled)
{
    return WithState(true, [&](CState& state) {
        state.SetSetting("hyperv_installed", fInstalled ? "1" : "0");
        state.SetSetting("hyperv_enabled", fRoleEnabled ? "1" : "0");
        return S_OK;
    });
}

HRESULT SetProductVersion(const std::string& version)
{
    if (version.empty())
        return E_INVALIDARG;
    return WithState(true, [&](CState& state) {
        state.SetSetting("version", version);
        return S_OK;
    });
}

const std::vector<std::string>& FaultableMethods()
{
    static const std::vector<std::string> methods = {
        "CreateInstance",
        "CreateCall",
        "CreateSnapShot",
        "CreateSnapShot1",
        "Begin_CreateSnapShot1",
        "Finish_CreateSnapShot1",
        "GetTargetLunInfo",
        "CreateTargetLun",
        "DeleteTargetLun",
        "DeleteSnapShot",
        "EnumVirtualDisks",
        "SetDatasetAttrib",
        "IsUnlockedCloneSupported",
        "IsHyperVInstalled",
        "IsHyperVRoleEnabled",
        "QueryInterface(ICallFactory)",
        "QueryInterface(IConnectionPointContainer)",
        "FindConnectionPoint",
        "Advise",
        "Unadvise",
    };
    return methods;
}

HRESULT SetFault(const std::string& method, HRESULT hr, LONG lTimes)
{
    if (SUCCEEDED(hr))
        return E_INVALIDARG;
    return SetRule(method, "fail", hr, 0, lTimes);
}

HRESULT SetRaise(const std::string& method, HRESULT hr, LONG lTimes)
{
    if (SUCCEEDED(hr))
        return E_INVALIDARG;
    return SetRule(method, "raise", hr, 0, lTimes);
}

HRESULT SetDelay(const std::string& method, DWORD dwMilliseconds, LONG lTimes)
{
    return SetRule(method, "delay", S_OK, dwMilliseconds, lTimes);
}

HRESULT SetHandoffFault(HandoffFault fault, LONG lTimes)
{
    return SetRule("CreateSnapShot1",
                   fault == HandoffFault::kNever ? "handoff-never" : "handoff-twice", S_OK, 0,
                   lTimes);
}

HRESULT ClearFaults()
{
    return WithState(true, [](CState& state) {
        state.Exec("DELETE FROM faults");
        return S_OK;
    });
}

HRESULT ListFaults(std::vector<FaultInfo>* pFaults)
{
    pFaults->clear();
    return WithState(false, [&](CState& state) {
        auto s = state.Prepare("SELECT method, kind, code, delay_ms, remaining FROM faults"
                               " ORDER BY method, kind");
        while (s.Step())
            pFaults->push_back({s.Text(0), s.Text(1), static_cast<HRESULT>(s.Int(2)),
                                static_cast<DWORD>(s.Int(3)), static_cast<LONG>(s.Int(4))});
        return S_OK;
    });
}

} // namespace storagesim
