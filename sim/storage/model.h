// The operations of the simulated service on its model of filers, LUNs, snapshots, target LUNs
// and host disks. Each runs in one transaction of the state; a failure returns the service's
// code and a description for the error object.
#pragma once

#include "storagesim.h"

#include <string>
#include <vector>

namespace storagesim::detail {

// One host disk of a LUN the service manages, as EnumVirtualDisks reports it.
struct CDiskRecord
{
    LONGLONG llLun;
    std::string filer;
    std::string path;
    std::string serial;
    std::string transport;
    BYTE port, bus, target, lun;
    std::vector<std::string> mountPoints;
    bool fReadonly;
    bool fShared;
    ULONGLONG ullSize;
    std::string snapshot; // set for a target LUN's disk
};

struct CTargetIdentity
{
    std::string filer;
    std::string path;
    std::string serial;
    std::string vendor;
    std::string product;
    std::string revision;
};

// A LUN of a creation: a pair's source LUN (or its clone, when the pair names one), or the LUN
// mounted at a drive.
struct CCreationLun
{
    std::string filer;
    std::string path; // empty for a drive
    std::string drive;
};

// Bit of EnumVirtualDisks' flags: leave out the disks of target LUNs.
constexpr DWORD kEnumSkipSnapshotDisks = 0x1;

HRESULT EnumDisks(DWORD dwFlags, std::vector<CDiskRecord>* pDisks, std::string* pWhy);
HRESULT IsUnlockedCloneSupported(const std::string& filer, bool* pfSupported, std::string* pWhy);
HRESULT GetTargetIdentity(const std::string& filer, const std::string& lunPath,
                          const std::string& snapshot, bool fAssign, bool fWritable,
                          CTargetIdentity* pTarget, std::string* pWhy);
HRESULT CreateTargetLun(const std::string& filer, const std::string& lunPath,
                        const std::string& snapshot, const CTargetIdentity& target,
                        std::string* pWhy);
HRESULT DeleteTargetLun(const std::string& filer, const std::string& path, std::string* pWhy);
HRESULT DeleteSnapshot(const std::string& filer, const std::string& lunPath,
                       const std::string& snapshot, std::string* pWhy);
HRESULT SetDataset(const std::string& tag, const std::vector<std::string>& drives,
                   std::string* pWhy);
// Checks that a creation can be made (every LUN known, the name free on each, a backup
// snapshot possible on each filer) without making it; pLunIds, if given, receives the LUNs.
HRESULT CheckCreation(const std::vector<CCreationLun>& luns, const std::string& name, DWORD dwKind,
                      std::string* pWhy, std::vector<LONGLONG>* pLunIds = nullptr);
// The cut: a snapshot of every LUN of the creation, with a copy of its image as it is now.
HRESULT CutSnapshot(const std::vector<CCreationLun>& luns, const std::string& name, DWORD dwKind,
                    std::string* pWhy);

// The instant cut of a storage system whose snapshots are copy-on-write: the LUNs are resolved
// by CheckCreation ahead of the hand-off, their data is captured at the cut, and the snapshot
// is recorded after the creation has answered its caller.
struct CInstantCut
{
    std::vector<LONGLONG> lunIds;
    std::vector<std::string> images;
};
HRESULT CaptureInstantCut(CInstantCut* pCut, std::string* pWhy);
HRESULT RecordInstantCut(const CInstantCut& cut, const std::string& name, DWORD dwKind,
                         std::string* pWhy);

struct CHostSettings
{
    std::string machine;
    bool fHyperVInstalled = false;
    bool fHyperVRoleEnabled = false;
    Handoff handoff = Handoff::kProgress;
    Cut cut = Cut::kCopy;
    std::string version;
};
HRESULT ReadHostSettings(CHostSettings* pSettings);

// The rules that apply to this call of `method`, consumed.
struct CFaultHit
{
    HRESULT hrFail = S_OK;
    HRESULT hrRaise = S_OK;
    DWORD dwDelayMs = 0;
    bool fHandoffNever = false;
    bool fHandoffTwice = false;
};
HRESULT ConsumeFaults(const char* method, CFaultHit* pHit);

} // namespace storagesim::detail
