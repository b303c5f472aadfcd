// The service's operations on its model.
#include "model.h"

#include "diskrows.h"
#include "images.h"
#include "simcodes.h"
#include "state.h"
#include "store/tessera.h"

#include <algorithm>
#include <random>

namespace storagesim::detail {

namespace {

struct CLunRow
{
    LONGLONG llId = 0;
    LONGLONG llFiler = 0;
    std::string filer;
    std::string path;
    std::string serial;
    std::string vendor;
    std::string product;
    std::string revision;
    ULONGLONG ullSize = 0;
    LONGLONG llSnapshot = 0; // the snapshot a target LUN exposes
};

struct CSnapshotRow
{
    LONGLONG llId = 0;
    std::string targetPath;
    std::string targetSerial;
    bool fTargetWritable = false;
};

HRESULT Fail(HRESULT hr, std::string* pWhy, const std::string& why)
{
    if (pWhy)
        *pWhy = why;
    return hr;
}

HRESULT FindFiler(CState& state, const std::string& name, LONGLONG* pllId, bool* pfUnlocked,
                  bool* pfBackup, std::string* pWhy)
{
    auto s =
        state.Prepare("SELECT id, unlocked_clone, backup_snapshots FROM filers WHERE name = ?1");
    s.Bind(1, name);
    if (!s.Step())
        return Fail(TESSERA_E_FILER_NOT_FOUND, pWhy, "Filer " + name + " is not known");
    *pllId = s.Int(0);
    if (pfUnlocked)
        *pfUnlocked = s.Int(1) != 0;
    if (pfBackup)
        *pfBackup = s.Int(2) != 0;
    return S_OK;
}

void ReadLun(CStatement& s, CLunRow* pLun)
{
    pLun->llId = s.Int(0);
    pLun->llFiler = s.Int(1);
    pLun->filer = s.Text(2);
    pLun->path = s.Text(3);
    pLun->serial = s.Text(4);
    pLun->vendor = s.Text(5);
    pLun->product = s.Text(6);
    pLun->revision = s.Text(7);
    pLun->ullSize = static_cast<ULONGLONG>(s.Int(8));
    pLun->llSnapshot = s.IsNull(9) ? 0 : s.Int(9);
}

#define LUN_COLUMNS                                                                                \
    "l.id, l.filer, f.name, l.path, l.serial, l.vendor, l.product, l.revision, l.size, "           \
    "l.snapshot"

HRESULT FindLun(CState& state, const std::string& filer, const std::string& path, CLunRow* pLun,
                std::string* pWhy)
{
    LONGLONG llFiler = 0;
    if (HRESULT hr = FindFiler(state, filer, &llFiler, nullptr, nullptr, pWhy); FAILED(hr))
        return hr;
    auto s = state.Prepare("SELECT " LUN_COLUMNS " FROM luns l JOIN filers f ON f.id = l.filer"
                           " WHERE l.filer = ?1 AND l.path = ?2");
    s.Bind(1, llFiler).Bind(2, path);
    if (!s.Step())
        return Fail(TESSERA_E_LUN_NOT_FOUND, pWhy, "LUN " + path + " not found on filer " + filer);
    ReadLun(s, pLun);
    return S_OK;
}

HRESULT FindLunByDrive(CState& state, const std::string& drive, CLunRow* pLun, std::string* pWhy)
{
    auto s = state.Prepare("SELECT " LUN_COLUMNS ", d.mount_points FROM disks d"
                           " JOIN luns l ON l.id = d.lun JOIN filers f ON f.id = l.filer"
                           " ORDER BY d.id");
    while (s.Step()) {
        const std::vector<std::string> mountPoints = ParseMountPoints(s.Text(10));
        if (std::any_of(mountPoints.begin(), mountPoints.end(),
                        [&drive](const std::string& m) { return EqualNoCase(m, drive); })) {
            ReadLun(s, pLun);
            return S_OK;
        }
    }
    return Fail(TESSERA_E_DRIVE_NOT_FOUND, pWhy,
                "Drive " + drive + " is not on a LUN of a managed filer");
}

HRESULT FindSnapshot(CState& state, const CLunRow& lun, const std::string& name,
                     CSnapshotRow* pSnapshot, std::string* pWhy)
{
    auto s = state.Prepare("SELECT id, target_path, target_serial, target_writable"
                           " FROM snapshots WHERE lun = ?1 AND name = ?2");
    s.Bind(1, lun.llId).Bind(2, name);
    if (!s.Step())
        return Fail(TESSERA_E_SNAPSHOT_NOT_FOUND, pWhy,
                    "Snapshot " + name + " of LUN " + lun.path + " on filer " + lun.filer +
                        " not found");
    pSnapshot->llId = s.Int(0);
    pSnapshot->targetPath = s.Text(1);
    pSnapshot->targetSerial = s.Text(2);
    pSnapshot->fTargetWritable = !s.IsNull(3) && s.Int(3) != 0;
    return S_OK;
}

// The snapshot named by the service's callers: a filer, a LUN path on it and a snapshot name.
HRESULT FindLunSnapshot(CState& state, const std::string& filer, const std::string& lunPath,
                        const std::string& snapshot, CLunRow* pLun, CSnapshotRow* pSnapshot,
                        std::string* pWhy)
{
    HRESULT hr = FindLun(state, filer, lunPath, pLun, pWhy);
    if (SUCCEEDED(hr))
        hr = FindSnapshot(state, *pLun, snapshot, pSnapshot, pWhy);
    return hr;
}

// Records a new snapshot of a LUN and returns its id, for the caller to give it an image.
LONGLONG InsertSnapshot(CState& state, LONGLONG llLun, const std::string& name, DWORD dwKind)
{
    state.Prepare("INSERT INTO snapshots(lun, name, kind) VALUES (?1, ?2, ?3)")
        .Bind(1, llLun)
        .Bind(2, name)
        .Bind(3, static_cast<LONGLONG>(dwKind))
        .Run();
    return state.LastInsertId();
}

// A serial number no LUN has: twelve letters and digits, as the filers make them.
std::string NewSerial(CState& state)
{
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    static std::mt19937 generator{std::random_device{}()};
    for (;;) {
        std::string serial;
        for (int i = 0; i < 12; ++i)
            serial += kAlphabet[generator() % (sizeof(kAlphabet) - 1)];
        auto s = state.Prepare("SELECT 1 FROM luns WHERE serial = ?1 UNION ALL"
                               " SELECT 1 FROM snapshots WHERE target_serial = ?1");
        s.Bind(1, serial);
        if (!s.Step())
            return serial;
    }
}

HRESULT ResolveCreationLuns(CState& state, const std::vector<CCreationLun>& luns,
                            std::vector<CLunRow>* pRows, std::string* pWhy)
{
    if (luns.empty())
        return Fail(E_INVALIDARG, pWhy, "The snapshot names no drive and no LUN");
    for (const CCreationLun& lun : luns) {
        CLunRow row;
        HRESULT hr = lun.path.empty() ? FindLunByDrive(state, lun.drive, &row, pWhy)
                                      : FindLun(state, lun.filer, lun.path, &row, pWhy);
        if (FAILED(hr))
            return hr;
        bool fSeen = std::any_of(pRows->begin(), pRows->end(),
                                 [&row](const CLunRow& r) { return r.llId == row.llId; });
        if (!fSeen)
            pRows->push_back(row);
    }
    return S_OK;
}

HRESULT CheckCreationRows(CState& state, const std::vector<CLunRow>& rows, const std::string& name,
                          DWORD dwKind, std::string* pWhy)
{
    for (const CLunRow& row : rows) {
        LONGLONG llFiler = 0;
        bool fBackup = false;
        if (HRESULT hr = FindFiler(state, row.filer, &llFiler, nullptr, &fBackup, pWhy); FAILED(hr))
            return hr;
        if (dwKind == 4 && !fBackup)
            return Fail(TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED, pWhy,
                        "Filer " + row.filer +
                            " cannot make backup snapshots (Verdane version or tandem-clone)");
        CSnapshotRow existing;
        if (SUCCEEDED(FindSnapshot(state, row, name, &existing, nullptr)))
            return Fail(TESSERA_E_SNAPSHOT_EXISTS, pWhy,
                        "Snapshot " + name + " of LUN " + row.path + " already exists");
    }
    return S_OK;
}

// The LUNs of a creation, each once, after checking that the creation can be made on them;
// *pRows holds what was resolved even when the check fails.
HRESULT ResolveCreation(CState& state, const std::vector<CCreationLun>& luns,
                        const std::string& name, DWORD dwKind, std::vector<CLunRow>* pRows,
                        std::string* pWhy)
{
    HRESULT hr = ResolveCreationLuns(state, luns, pRows, pWhy);
    if (SUCCEEDED(hr))
        hr = CheckCreationRows(state, *pRows, name, dwKind, pWhy);
    return hr;
}

} // namespace

HRESULT EnumDisks(DWORD dwFlags, std::vector<CDiskRecord>* pDisks, std::string* pWhy)
{
    if (dwFlags & ~kEnumSkipSnapshotDisks)
        return Fail(E_INVALIDARG, pWhy, "Unknown enumeration flags");
    return WithState(
        false,
        [&](CState& state) {
            auto s = state.Prepare(
                "SELECT l.id, f.name, l.path, l.serial, d.transport, d.port, d.bus, d.target,"
                " d.lunno, d.mount_points, d.readonly, d.shared, l.size, sn.name"
                " FROM disks d JOIN luns l ON l.id = d.lun JOIN filers f ON f.id = l.filer"
                " LEFT JOIN snapshots sn ON sn.id = l.snapshot ORDER BY d.id");
            while (s.Step()) {
                CDiskRecord disk;
                disk.llLun = s.Int(0);
                disk.filer = s.Text(1);
                disk.path = s.Text(2);
                disk.serial = s.Text(3);
                ReadDiskAddress(s, 4, &disk);
                disk.ullSize = static_cast<ULONGLONG>(s.Int(12));
                disk.snapshot = s.IsNull(13) ? std::string() : s.Text(13);
                if (!disk.snapshot.empty() && (dwFlags & kEnumSkipSnapshotDisks))
                    continue;
                pDisks->push_back(std::move(disk));
            }
            return S_OK;
        },
        pWhy);
}

HRESULT IsUnlockedCloneSupported(const std::string& filer, bool* pfSupported, std::string* pWhy)
{
    return WithState(
        false,
        [&](CState& state) {
            LONGLONG llFiler = 0;
            return FindFiler(state, filer, &llFiler, pfSupported, nullptr, pWhy);
        },
        pWhy);
}

HRESULT GetTargetIdentity(const std::string& filer, const std::string& lunPath,
                          const std::string& snapshot, bool fAssign, bool fWritable,
                          CTargetIdentity* pTarget, std::string* pWhy)
{
    return WithState(
        true,
        [&](CState& state) {
            CLunRow lun;
            CSnapshotRow snap;
            if (HRESULT hr = FindLunSnapshot(state, filer, lunPath, snapshot, &lun, &snap, pWhy);
                FAILED(hr))
                return hr;
            pTarget->filer = lun.filer;
            pTarget->vendor = lun.vendor;
            pTarget->product = lun.product;
            pTarget->revision = lun.revision;
            // A target LUN that exists answers with its own identity.
            auto s = state.Prepare("SELECT path, serial, vendor, product, revision FROM luns"
                                   " WHERE snapshot = ?1 ORDER BY id");
            s.Bind(1, snap.llId);
            if (s.Step()) {
                pTarget->path = s.Text(0);
                pTarget->serial = s.Text(1);
                pTarget->vendor = s.Text(2);
                pTarget->product = s.Text(3);
                pTarget->revision = s.Text(4);
                return S_OK;
            }
            if (!fAssign)
                return Fail(TESSERA_E_NO_TARGET_LUN, pWhy,
                            "Snapshot " + snapshot + " of LUN " + lunPath + " has no target LUN");
            if (snap.targetPath.empty()) {
                snap.targetPath = lun.path + "_ss" + std::to_string(snap.llId);
                snap.targetSerial = NewSerial(state);
            }
            state
                .Prepare("UPDATE snapshots SET target_path = ?2, target_serial = ?3,"
                         " target_writable = ?4 WHERE id = ?1")
                .Bind(1, snap.llId)
                .Bind(2, snap.targetPath)
                .Bind(3, snap.targetSerial)
                .Bind(4, fWritable ? 1 : 0)
                .Run();
            pTarget->path = snap.targetPath;
            pTarget->serial = snap.targetSerial;
            return S_OK;
        },
        pWhy);
}

HRESULT CreateTargetLun(const std::string& filer, const std::string& lunPath,
                        const std::string& snapshot, const CTargetIdentity& target,
                        std::string* pWhy)
{
    if (target.path.empty() || target.serial.empty())
        return Fail(E_INVALIDARG, pWhy, "The target LUN needs a path and a serial number");
    if (!target.filer.empty() && !EqualNoCase(target.filer, filer))
        return Fail(E_INVALIDARG, pWhy,
                    "A target LUN lives on the filer of its snapshot (" + filer + ")");
    return WithState(
        true,
        [&](CState& state) {
            CLunRow lun;
            CSnapshotRow snap;
            if (HRESULT hr = FindLunSnapshot(state, filer, lunPath, snapshot, &lun, &snap, pWhy);
                FAILED(hr))
                return hr;
            CLunRow existing;
            if (SUCCEEDED(FindLun(state, filer, target.path, &existing, nullptr)))
                return Fail(TESSERA_E_TARGET_LUN_EXISTS, pWhy,
                            "LUN " + target.path + " already exists on filer " + filer);
            bool fWritable = snap.fTargetWritable;
            state
                .Prepare("INSERT INTO luns(filer, path, serial, vendor, product, revision, size,"
                         " snapshot, writable) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)")
                .Bind(1, lun.llFiler)
                .Bind(2, target.path)
                .Bind(3, target.serial)
                .Bind(4, target.vendor.empty() ? lun.vendor : target.vendor)
                .Bind(5, target.product.empty() ? lun.product : target.product)
                .Bind(6, target.revision.empty() ? lun.revision : target.revision)
                .Bind(7, static_cast<LONGLONG>(lun.ullSize))
                .Bind(8, snap.llId)
                .Bind(9, fWritable ? 1 : 0)
                .Run();
            LONGLONG llTarget = state.LastInsertId();
            CopyImage(SnapshotImagePath(snap.llId), LunImagePath(llTarget));
            // Mapped to the host on the source LUN's port, at the next free LUN number.
            std::string transport = "iscsi";
            LONGLONG llPort = 2, llTargetId = 0;
            auto source = state.Prepare("SELECT transport, port, target FROM disks WHERE lun = ?1");
            source.Bind(1, lun.llId);
            if (source.Step()) {
                transport = source.Text(0);
                llPort = source.Int(1);
                llTargetId = source.Int(2);
            }
            auto next = state.Prepare("SELECT COALESCE(MAX(lunno) + 1, 0) FROM disks"
                                      " WHERE port = ?1 AND target = ?2");
            next.Bind(1, llPort).Bind(2, llTargetId);
            next.Step();
            LONGLONG llLunNo = next.Int(0);
            state
                .Prepare("INSERT INTO disks(lun, vendor, product, revision, serial, size,"
                         " transport, port, bus, target, lunno, mount_points, readonly, shared)"
                         " SELECT id, vendor, product, revision, serial, size, ?2, ?3, 0, ?4, ?5,"
                         " '[]', ?6, 0 FROM luns WHERE id = ?1")
                .Bind(1, llTarget)
                .Bind(2, transport)
                .Bind(3, llPort)
                .Bind(4, llTargetId)
                .Bind(5, llLunNo)
                .Bind(6, fWritable ? 0 : 1)
                .Run();
            return S_OK;
        },
        pWhy);
}

HRESULT DeleteTargetLun(const std::string& filer, const std::string& path, std::string* pWhy)
{
    return WithState(
        true,
        [&](CState& state) {
            CLunRow lun;
            if (HRESULT hr = FindLun(state, filer, path, &lun, pWhy); FAILED(hr))
                return hr;
            if (lun.llSnapshot == 0)
                return Fail(E_INVALIDARG, pWhy,
                            "LUN " + path + " is not a target LUN; only those are deleted");
            state.Prepare("DELETE FROM disks WHERE lun = ?1").Bind(1, lun.llId).Run();
            state.Prepare("DELETE FROM luns WHERE id = ?1").Bind(1, lun.llId).Run();
            RemoveImage(LunImagePath(lun.llId));
            return S_OK;
        },
        pWhy);
}

HRESULT DeleteSnapshot(const std::string& filer, const std::string& lunPath,
                       const std::string& snapshot, std::string* pWhy)
{
    return WithState(
        true,
        [&](CState& state) {
            CLunRow lun;
            CSnapshotRow snap;
            if (HRESULT hr = FindLunSnapshot(state, filer, lunPath, snapshot, &lun, &snap, pWhy);
                FAILED(hr))
                return hr;
            auto busy = state.Prepare("SELECT path FROM luns WHERE snapshot = ?1");
            busy.Bind(1, snap.llId);
            if (busy.Step())
                return Fail(TESSERA_E_SNAPSHOT_BUSY, pWhy,
                            "Snapshot " + snapshot + " backs target LUN " + busy.Text(0));
            state.Prepare("DELETE FROM snapshots WHERE id = ?1").Bind(1, snap.llId).Run();
            RemoveImage(SnapshotImagePath(snap.llId));
            return S_OK;
        },
        pWhy);
}

HRESULT SetDataset(const std::string& tag, const std::vector<std::string>& drives,
                   std::string* pWhy)
{
    if (tag.empty() || drives.empty())
        return Fail(E_INVALIDARG, pWhy, "A dataset needs a name and at least one drive");
    return WithState(
        true,
        [&](CState& state) {
            for (const std::string& drive : drives) {
                CLunRow lun;
                if (HRESULT hr = FindLunByDrive(state, drive, &lun, pWhy); FAILED(hr))
                    return hr;
                state.Prepare("INSERT OR IGNORE INTO datasets(tag, drive) VALUES (?1, ?2)")
                    .Bind(1, tag)
                    .Bind(2, drive)
                    .Run();
            }
            return S_OK;
        },
        pWhy);
}

HRESULT CheckCreation(const std::vector<CCreationLun>& luns, const std::string& name, DWORD dwKind,
                      std::string* pWhy, std::vector<LONGLONG>* pLunIds)
{
    if (name.empty())
        return Fail(E_INVALIDARG, pWhy, "The snapshot needs a name");
    return WithState(
        false,
        [&](CState& state) {
            std::vector<CLunRow> rows;
            HRESULT hr = ResolveCreation(state, luns, name, dwKind, &rows, pWhy);
            if (SUCCEEDED(hr) && pLunIds) {
                for (const CLunRow& row : rows)
                    pLunIds->push_back(row.llId);
            }
            return hr;
        },
        pWhy);
}

HRESULT CutSnapshot(const std::vector<CCreationLun>& luns, const std::string& name, DWORD dwKind,
                    std::string* pWhy)
{
    return WithState(
        true,
        [&](CState& state) {
            std::vector<CLunRow> rows;
            if (HRESULT hr = ResolveCreation(state, luns, name, dwKind, &rows, pWhy); FAILED(hr))
                return hr;
            for (const CLunRow& row : rows)
                CopyImage(LunImagePath(row.llId),
                          SnapshotImagePath(InsertSnapshot(state, row.llId, name, dwKind)));
            return S_OK;
        },
        pWhy);
}

HRESULT CaptureInstantCut(CInstantCut* pCut, std::string* pWhy)
{
    // In a write transaction, as a LUN's data is written, so that no process's write is seen
    // half done; nothing is written, so the commit is cheap.
    return WithState(
        true,
        [&](CState&) {
            for (LONGLONG llLun : pCut->lunIds)
                pCut->images.push_back(ReadImage(LunImagePath(llLun), 0, kImageBytes));
            return S_OK;
        },
        pWhy);
}

HRESULT RecordInstantCut(const CInstantCut& cut, const std::string& name, DWORD dwKind,
                         std::string* pWhy)
{
    return WithState(
        true,
        [&](CState& state) {
            for (size_t i = 0; i < cut.lunIds.size(); ++i) {
                const std::string path =
                    SnapshotImagePath(InsertSnapshot(state, cut.lunIds[i], name, dwKind));
                CreateImage(path);
                WriteImage(path, 0, cut.images[i]);
            }
            return S_OK;
        },
        pWhy);
}

HRESULT ReadHostSettings(CHostSettings* pSettings)
{
    return WithState(false, [&](CState& state) {
        pSettings->machine = state.Setting("machine", "ORVHOST01");
        pSettings->fHyperVInstalled = state.Setting("hyperv_installed", "0") == "1";
        pSettings->fHyperVRoleEnabled = state.Setting("hyperv_enabled", "0") == "1";
        std::string handoff = state.Setting("handoff", "progress");
        pSettings->handoff = handoff == "ready"  ? Handoff::kReady
                             : handoff == "both" ? Handoff::kBoth
                                                 : Handoff::kProgress;
        pSettings->cut = state.Setting("cut", "copy") == "instant" ? Cut::kInstant : Cut::kCopy;
        pSettings->version = state.Setting("version");
        return S_OK;
    });
}

HRESULT ConsumeFaults(const char* method, CFaultHit* pHit)
{
    *pHit = CFaultHit();
    // Most calls meet no rule: look without taking the write lock first.
    bool fAnyRule = false;
    HRESULT hr = WithState(false, [&](CState& state) {
        fAnyRule = state.Prepare("SELECT 1 FROM faults WHERE method = ?1 AND remaining != 0")
                       .Bind(1, method)
                       .Step();
        return S_OK;
    });
    if (FAILED(hr) || !fAnyRule)
        return hr;
    return WithState(true, [&](CState& state) {
        auto s = state.Prepare("SELECT kind, code, delay_ms, remaining FROM faults"
                               " WHERE method = ?1 AND remaining != 0");
        s.Bind(1, method);
        bool fAny = false;
        while (s.Step()) {
            fAny = true;
            std::string kind = s.Text(0);
            if (kind == "fail")
                pHit->hrFail = static_cast<HRESULT>(s.Int(1));
            else if (kind == "raise")
                pHit->hrRaise = static_cast<HRESULT>(s.Int(1));
            else if (kind == "delay")
                pHit->dwDelayMs = static_cast<DWORD>(s.Int(2));
            else if (kind == "handoff-never")
                pHit->fHandoffNever = true;
            else if (kind == "handoff-twice")
                pHit->fHandoffTwice = true;
        }
        if (fAny) {
            state
                .Prepare("UPDATE faults SET remaining = remaining - 1"
                         " WHERE method = ?1 AND remaining > 0")
                .Bind(1, method)
                .Run();
            state.Prepare("DELETE FROM faults WHERE remaining = 0").Run();
        }
        return S_OK;
    });
}

} // namespace storagesim::detail
