// The simulated storage management service (Tessera) and its storage systems.
//
// The state of the simulated machine's storage (filers, volumes, LUNs with their data,
// snapshots, target LUNs, the host's disks, the service's settings and injected faults) lives
// in SQLite under the machine root, so that orvsim and the process under test share it. A
// process that calls CStorageService::Start serves CLSID_VSSSupport and CLSID_HyperVSupport as
// local-server class objects of its own (see "COM runtime and the simulated storage service"
// in docs/ARCHITECTURE.md).
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"

#include <string>
#include <vector>

namespace storagesim {

// ---- Machine state ----

// The topology used when none is given: two filers (the second without unlocked clones or
// backup snapshots), ORVANE LUNs mounted as drives over iSCSI and Fibre Channel, and a disk of
// another vendor.
const std::string& DefaultTopology();

// Replaces the whole storage state with the topology (JSON text, see DefaultTopology for the
// format); an empty text means the default. A non-empty version overrides the topology's.
// E_INVALIDARG with a message for a topology that cannot be read.
HRESULT InitializeState(const std::string& topologyJson, const std::string& version,
                        std::string* pMessage = nullptr);
// Initialises with the default topology unless the machine already has a storage state.
HRESULT EnsureState();

struct FilerInfo
{
    std::string name;
    bool fUnlockedClone;
    bool fBackupSnapshots;
};
struct LunInfo
{
    std::string filer;
    std::string path;
    std::string serial;
    std::string vendor;
    std::string product;
    std::string revision;
    ULONGLONG ullSize;
    // Set for a target LUN: the snapshot it exposes.
    std::string snapshot;
    bool fWritable;
};
struct SnapshotInfo
{
    std::string filer;
    std::string lunPath;
    std::string name;
    DWORD dwKind;
    std::string targetPath; // the target identity assigned, if any
    std::string targetSerial;
};
struct DiskInfo
{
    std::string filer; // empty for a disk the service does not manage
    std::string path;
    std::string vendor;
    std::string serial;
    std::string transport; // "iscsi" or "fc"
    BYTE port, bus, target, lun;
    std::vector<std::string> mountPoints;
    bool fReadonly;
    bool fShared;
    std::string snapshot; // the snapshot behind a target LUN's disk
    // What the disk answers to a SCSI inquiry, beside its vendor and serial number.
    std::string product;
    std::string revision;
};
struct DatasetInfo
{
    std::string tag;
    std::string drive;
};
struct StateView
{
    std::string version;
    std::string machine;
    bool fHyperVInstalled;
    bool fHyperVRoleEnabled;
    std::string handoff;
    std::string cut; // "copy" or "instant"
    std::vector<FilerInfo> filers;
    std::vector<LunInfo> luns; // source LUNs and target LUNs
    std::vector<SnapshotInfo> snapshots;
    std::vector<DiskInfo> disks;
    std::vector<DatasetInfo> datasets;
};
HRESULT ReadState(StateView* pView);
// The state as JSON, for `orvsim storage show --json`.
std::string StateToJson(const StateView& view);

// ---- LUN data ----
// Every LUN has a small backing image; a snapshot holds a copy of its LUN's image taken at the
// cut, and a target LUN starts as a copy of its snapshot's. Writes past the image fail with
// E_INVALIDARG; an unknown LUN or snapshot gives the service's own codes (simcodes.h).
constexpr DWORD kImageBytes = 64 * 1024;
HRESULT WriteLunData(const std::string& filer, const std::string& lunPath, DWORD dwOffset,
                     const std::string& data);
HRESULT ReadLunData(const std::string& filer, const std::string& lunPath, DWORD dwOffset, DWORD cb,
                    std::string* pData);
// The LUN mounted at a host drive (as "E:\"), for writing through the host's view.
HRESULT FindLunByDrive(const std::string& drive, std::string* pFiler, std::string* pLunPath);
// Mounts the host's disk with that serial number at a mount point ("X:\"), read-only, as VSS
// exposes a shadow copy's target LUN: TESSERA_E_LUN_NOT_FOUND when no disk has the serial,
// HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS) when any disk of the host uses the mount point.
HRESULT MountDisk(const std::string& serial, const std::string& mountPoint);
// Takes the mount point from the disk that has it; TESSERA_E_DRIVE_NOT_FOUND when none has.
HRESULT UnmountDisk(const std::string& mountPoint);
HRESULT ReadSnapshotData(const std::string& filer, const std::string& lunPath,
                         const std::string& snapshot, DWORD dwOffset, DWORD cb, std::string* pData);

// ---- Settings ----
enum class Handoff
{
    kProgress, // progress code 43
    kReady,    // OnKVXSnapReady
    kBoth,     // progress code 43, then OnKVXSnapReady
};
HRESULT SetHandoff(Handoff handoff);
enum class Cut
{
    kCopy,    // the snapshot's records and image are written before the creation answers
    kInstant, // copy-on-write: the data is captured at the cut and the snapshot recorded after
              // the creation has answered; ActiveCreationCount drops once it is recorded
};
HRESULT SetCut(Cut cut);
HRESULT SetHyperV(bool fInstalled, bool fRoleEnabled);
// Kept in the state and written under "Software\Halvern\Tessera" at the next start.
HRESULT SetProductVersion(const std::string& version);

// ---- Fault injection ----
// Methods are named as the service's: "EnumVirtualDisks", "CreateSnapShot1",
// "IsHyperVRoleEnabled", ..., also "Begin_CreateSnapShot1", "Finish_CreateSnapShot1",
// "CreateInstance" (activation of either class) and "CreateCall". A rule applies to
// the next `lTimes` calls (kEveryCall: until cleared) and is kept in the state, so that a rule
// set by `orvsim storage fail` applies in a later process.
//
// A failing method returns the code and leaves an error object. For "CreateSnapShot1" the
// creation fails at its cut, after the hand-off was answered, and Finish_CreateSnapShot1
// returns the code; a delayed "CreateSnapShot1" waits before its first event.
constexpr LONG kEveryCall = -1;
HRESULT SetFault(const std::string& method, HRESULT hr, LONG lTimes = kEveryCall);
HRESULT SetDelay(const std::string& method, DWORD dwMilliseconds, LONG lTimes = kEveryCall);
// The method raises a COM error (a _com_error carrying the error object) instead of returning,
// as a client's wrapper of a failing call raises it; the service's objects are called in the
// client's process, so the exception reaches the caller.
HRESULT SetRaise(const std::string& method, HRESULT hr, LONG lTimes = kEveryCall);
enum class HandoffFault
{
    kNever, // the creation stops before its hand-off until its call is finished or released
    kTwice, // the hand-off is delivered twice; the first answer decides
};
HRESULT SetHandoffFault(HandoffFault fault, LONG lTimes = kEveryCall);
HRESULT ClearFaults();
struct FaultInfo
{
    std::string method;
    std::string kind; // "fail", "raise", "delay", "handoff-never", "handoff-twice"
    HRESULT hr;
    DWORD dwDelayMs;
    LONG lRemaining;
};
HRESULT ListFaults(std::vector<FaultInfo>* pFaults);
// The method names a rule may name.
const std::vector<std::string>& FaultableMethods();

// Installs the service on the machine as its setup does: writes the state's version under
// "Software\Halvern\Tessera", where the provider reads it when VSS loads it.
HRESULT InstallService();

// ---- The service in this process ----
// Registers the service's class objects (CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE) and writes
// the service's version to the registry. The calling thread must have initialised COM.
class CStorageService
{
public:
    CStorageService() = default;
    CStorageService(const CStorageService&) = delete;
    CStorageService& operator=(const CStorageService&) = delete;
    ~CStorageService() { Stop(); }

    HRESULT Start();
    // Revokes the class objects and disconnects every object still held by a client, as when
    // the service's process ends: their calls fail with CO_E_OBJNOTCONNECTED. Waits until the
    // creations under way have ended.
    void Stop();
    bool Running() const { return m_fRunning; }

private:
    DWORD m_dwVssCookie = 0;
    DWORD m_dwHyperVCookie = 0;
    bool m_fRunning = false;
};

// Objects of the service that clients hold, and creations whose worker has not ended.
ULONG LiveObjectCount();
ULONG ActiveCreationCount();

} // namespace storagesim
