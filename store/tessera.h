// The storage management service Tessera as its clients see it: the classes, the interfaces in
// slot order, the records exchanged with their published 64-bit layouts, the events and the
// progress codes.
//
// The service is a COM local server of its own; these declarations reproduce its wire contract
// exactly so that the provider builds without the service's headers. Every block the service
// hands out (out parameters, records and their strings) is allocated with the COM task
// allocator and belongs to the caller, who frees it with CoTaskMemFree. Blocks the caller
// passes in stay the caller's.
#pragma once

#include "core/lcpairtypes.h"
#include "pal/objbase.h"
#include "pal/uuidof.h"

#include <cstddef>

// ---- Records ----

// Where a LUN lives: the storage system (filer) and the LUN's path on it.
struct LUN_LOCATION
{
    LPWSTR filerName;
    LPWSTR lunPath;
};

// The identity of a LUN that exposes a snapshot (a target LUN).
struct TARGET_LUN_INFO
{
    LUN_LOCATION lunLocation;
    LPWSTR serialNumber;
    LPWSTR vendorId;
    LPWSTR productId;
    LPWSTR productRevision;
};

// One host drive (mount point) of a snapshot.
struct DRIVE_ENTRY
{
    LPWSTR Drive;
    // Always 0.
    ULONGLONG Reserved;
};

// The host drives a snapshot covers.
struct DRIVE_LIST
{
    // Both always 0.
    BYTE Flag1;
    BYTE Flag2;
    ULONG Count;
    DRIVE_ENTRY* Drives;
};

// One virtual disk (LUN) of a storage system as the host sees it. The fields named Extra... and
// Reserved... are the service's; clients copy the former and ignore the latter.
struct VD_INFO
{
    DWORD ExtraDword1;
    LPWSTR ExtraString1;
    LPWSTR Filer;
    // The LUN's path on the filer.
    LPWSTR FilerPath;
    LPWSTR ExtraString2;
    // ANSI, 12 characters.
    LPSTR SerialNumber;
    BYTE Reserved1[8];
    // The disk is a snapshot LUN; SnapshotName names the snapshot behind it.
    BOOLEAN BackedBySnapshot;
    BYTE ExtraFlag1;
    LPWSTR SnapshotName;
    BOOLEAN Shared;
    BYTE ExtraFlag2;
    BYTE Reserved2;
    BYTE ExtraByte1;
    BYTE ExtraByte2;
    BYTE SCSIPort;
    BYTE Bus;
    BYTE Target;
    BYTE LUN;
    BOOLEAN Readonly;
    ULONGLONG Size;
    DWORD ExtraDword2;
    DWORD ExtraDword3;
    ULONG MountPointCount;
    // MountPointCount host paths at which the disk is mounted.
    LPWSTR* MountPoint;
    BYTE Reserved3[16];
    DWORD ExtraDword4;
    BYTE Reserved4[20];
};

struct VD_INFO_LIST
{
    ULONG Count;
    // Count contiguous records.
    VD_INFO* Disks;
};

static_assert(sizeof(LUN_LOCATION) == 16);
static_assert(offsetof(LUN_LOCATION, filerName) == 0);
static_assert(offsetof(LUN_LOCATION, lunPath) == 8);

static_assert(sizeof(TARGET_LUN_INFO) == 48);
static_assert(offsetof(TARGET_LUN_INFO, lunLocation) == 0);
static_assert(offsetof(TARGET_LUN_INFO, serialNumber) == 16);
static_assert(offsetof(TARGET_LUN_INFO, vendorId) == 24);
static_assert(offsetof(TARGET_LUN_INFO, productId) == 32);
static_assert(offsetof(TARGET_LUN_INFO, productRevision) == 40);

static_assert(sizeof(DRIVE_ENTRY) == 16);
static_assert(offsetof(DRIVE_ENTRY, Drive) == 0);
static_assert(offsetof(DRIVE_ENTRY, Reserved) == 8);

static_assert(sizeof(DRIVE_LIST) == 16);
static_assert(offsetof(DRIVE_LIST, Flag1) == 0);
static_assert(offsetof(DRIVE_LIST, Flag2) == 1);
static_assert(offsetof(DRIVE_LIST, Count) == 4);
static_assert(offsetof(DRIVE_LIST, Drives) == 8);

static_assert(sizeof(VD_INFO) == 160);
static_assert(offsetof(VD_INFO, ExtraDword1) == 0);
static_assert(offsetof(VD_INFO, ExtraString1) == 8);
static_assert(offsetof(VD_INFO, Filer) == 16);
static_assert(offsetof(VD_INFO, FilerPath) == 24);
static_assert(offsetof(VD_INFO, ExtraString2) == 32);
static_assert(offsetof(VD_INFO, SerialNumber) == 40);
static_assert(offsetof(VD_INFO, Reserved1) == 48);
static_assert(offsetof(VD_INFO, BackedBySnapshot) == 56);
static_assert(offsetof(VD_INFO, ExtraFlag1) == 57);
static_assert(offsetof(VD_INFO, SnapshotName) == 64);
static_assert(offsetof(VD_INFO, Shared) == 72);
static_assert(offsetof(VD_INFO, ExtraFlag2) == 73);
static_assert(offsetof(VD_INFO, Reserved2) == 74);
static_assert(offsetof(VD_INFO, ExtraByte1) == 75);
static_assert(offsetof(VD_INFO, ExtraByte2) == 76);
static_assert(offsetof(VD_INFO, SCSIPort) == 77);
static_assert(offsetof(VD_INFO, Bus) == 78);
static_assert(offsetof(VD_INFO, Target) == 79);
static_assert(offsetof(VD_INFO, LUN) == 80);
static_assert(offsetof(VD_INFO, Readonly) == 81);
static_assert(offsetof(VD_INFO, Size) == 88);
static_assert(offsetof(VD_INFO, ExtraDword2) == 96);
static_assert(offsetof(VD_INFO, ExtraDword3) == 100);
static_assert(offsetof(VD_INFO, MountPointCount) == 104);
static_assert(offsetof(VD_INFO, MountPoint) == 112);
static_assert(offsetof(VD_INFO, Reserved3) == 120);
static_assert(offsetof(VD_INFO, ExtraDword4) == 136);
static_assert(offsetof(VD_INFO, Reserved4) == 140);

static_assert(sizeof(VD_INFO_LIST) == 16);
static_assert(offsetof(VD_INFO_LIST, Count) == 0);
static_assert(offsetof(VD_INFO_LIST, Disks) == 8);

// ---- Class ids and interface ids ----

// {B9F2082F-933B-4BAF-BF03-9C9E74D454B6}: serves IVSSSupport and ISnapShot.
inline constexpr CLSID CLSID_VSSSupport = {
    0xB9F2082F, 0x933B, 0x4BAF, {0xBF, 0x03, 0x9C, 0x9E, 0x74, 0xD4, 0x54, 0xB6}};
// {2CDC738A-B3CA-4022-B7C9-A112710D9FA6}
inline constexpr CLSID CLSID_HyperVSupport = {
    0x2CDC738A, 0xB3CA, 0x4022, {0xB7, 0xC9, 0xA1, 0x12, 0x71, 0x0D, 0x9F, 0xA6}};

// {E2AE21F8-46C4-4615-B5A6-ED1F81ADD5EB}
inline constexpr IID IID_IVSSSupport = {
    0xE2AE21F8, 0x46C4, 0x4615, {0xB5, 0xA6, 0xED, 0x1F, 0x81, 0xAD, 0xD5, 0xEB}};
// {EE562C58-79E4-4CF3-A58B-E2594EEC2B5E}
inline constexpr IID IID_AsyncIVSSSupport = {
    0xEE562C58, 0x79E4, 0x4CF3, {0xA5, 0x8B, 0xE2, 0x59, 0x4E, 0xEC, 0x2B, 0x5E}};
// {A17DB9DE-94EF-49D6-85D2-F9507718F975}
inline constexpr IID IID_ISnapShot = {
    0xA17DB9DE, 0x94EF, 0x49D6, {0x85, 0xD2, 0xF9, 0x50, 0x77, 0x18, 0xF9, 0x75}};
// {AA640497-DC53-4565-B990-36B1D734080E}
inline constexpr IID IID_IHyperVSupport = {
    0xAA640497, 0xDC53, 0x4565, {0xB9, 0x90, 0x36, 0xB1, 0xD7, 0x34, 0x08, 0x0E}};
// {2CA9F25C-47B5-4DD5-9436-1EE77FE9EE8E}: the event interface and the service's connection
// point.
inline constexpr IID IID__ISnapShotEvents = {
    0x2CA9F25C, 0x47B5, 0x4DD5, {0x94, 0x36, 0x1E, 0xE7, 0x7F, 0xE9, 0xEE, 0x8E}};

// ---- Progress codes of _ISnapShotEvents::OnKVXSnapOpProgress ----
#define PROG_POLICY_CHECK 1
#define PROG_KVX_SNAPCREATE 20
#define PROG_KVX_SNAP_PREPARE 29
// The hand-off: the service holds its creation call at the cut point until the sink answers.
#define PROG_HANDOFF 43

// The storage system cannot make this snapshot as a backup snapshot (its operating system
// version, or tandem-clone enabled).
#define TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED _HRESULT_TYPEDEF_(0xC0040460L)

// ---- Interfaces ----
// Strings passed in are NUL-terminated UTF-16 and stay the caller's.

interface IVSSSupport : public IUnknown
{
    // Slot 3: the service's first, synchronous creation of a snapshot of the drives.
    STDMETHOD(CreateSnapShot)(DRIVE_LIST* pDriveList, LPCWSTR pszSnapshotName) PURE;
    // Slot 4: creation of a snapshot of a set, with progress events; clients call it in its
    // asynchronous form (AsyncIVSSSupport). dwCreationKind is 2 for a main set, 4 for a backup
    // set.
    STDMETHOD(CreateSnapShot1)
    (DRIVE_LIST* pDriveList, LC_PAIR_ARRAY* pLcPairs, LPCWSTR pszSnapshotName,
     DWORD dwUpdateReplicor, DWORD dwCreationKind, LPCWSTR pszExclude) PURE;
    // Slot 5: the target LUN that exposes the named snapshot of the source LUN, as one block
    // the caller owns. dwAssign 1 gives the snapshot a target identity when it has none yet;
    // with 0 only a target LUN that exists is answered. dwWritable asks for a target LUN
    // that may be written (a recovery).
    STDMETHOD(GetTargetLunInfo)
    (LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName, DWORD dwAssign, DWORD dwWritable,
     TARGET_LUN_INFO** ppTargetLunInfo) PURE;
    // Slot 6: creates the target LUN and maps it to the host.
    STDMETHOD(CreateTargetLun)
    (LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName, TARGET_LUN_INFO* pTargetLunInfo) PURE;
    // Slot 7: unmaps and deletes a target LUN.
    STDMETHOD(DeleteTargetLun)(LUN_LOCATION* pTargetLun) PURE;
    // Slot 8
    STDMETHOD(DeleteSnapShot)(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName) PURE;
    // Slot 9: fills the caller's list in place; records, strings and mount point arrays are the
    // caller's.
    STDMETHOD(EnumVirtualDisks)(VD_INFO_LIST* pDiskList, DWORD dwFlags) PURE;
    // Slot 10: tags the drives as one dataset.
    STDMETHOD(SetDatasetAttrib)(LPCWSTR pszSnapshotSetId, DRIVE_LIST* pDriveList) PURE;
    // Slot 11
    STDMETHOD(IsUnlockedCloneSupported)(LPCWSTR pszFiler, BOOLEAN* pfSupported) PURE;

protected:
    ~IVSSSupport() = default;
};

// The asynchronous form of IVSSSupport, a call object obtained through ICallFactory: a
// Begin_/Finish_ pair per method, in IVSSSupport's slot order. Begin_ takes the in-parameters
// and returns once the call is under way; Finish_ blocks until it is done and hands out the
// out-parameters and the call's result.
interface AsyncIVSSSupport : public IUnknown
{
    STDMETHOD(Begin_CreateSnapShot)(DRIVE_LIST* pDriveList, LPCWSTR pszSnapshotName) PURE;
    STDMETHOD(Finish_CreateSnapShot)() PURE;
    STDMETHOD(Begin_CreateSnapShot1)
    (DRIVE_LIST* pDriveList, LC_PAIR_ARRAY* pLcPairs, LPCWSTR pszSnapshotName,
     DWORD dwUpdateReplicor, DWORD dwCreationKind, LPCWSTR pszExclude) PURE;
    STDMETHOD(Finish_CreateSnapShot1)() PURE;
    STDMETHOD(Begin_GetTargetLunInfo)
    (LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName, DWORD dwAssign, DWORD dwWritable) PURE;
    STDMETHOD(Finish_GetTargetLunInfo)(TARGET_LUN_INFO** ppTargetLunInfo) PURE;
    STDMETHOD(Begin_CreateTargetLun)
    (LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName, TARGET_LUN_INFO* pTargetLunInfo) PURE;
    STDMETHOD(Finish_CreateTargetLun)() PURE;
    STDMETHOD(Begin_DeleteTargetLun)(LUN_LOCATION* pTargetLun) PURE;
    STDMETHOD(Finish_DeleteTargetLun)() PURE;
    STDMETHOD(Begin_DeleteSnapShot)(LUN_LOCATION* pSourceLun, LPCWSTR pszSnapshotName) PURE;
    STDMETHOD(Finish_DeleteSnapShot)() PURE;
    STDMETHOD(Begin_EnumVirtualDisks)(DWORD dwFlags) PURE;
    STDMETHOD(Finish_EnumVirtualDisks)(VD_INFO_LIST* pDiskList) PURE;
    STDMETHOD(Begin_SetDatasetAttrib)(LPCWSTR pszSnapshotSetId, DRIVE_LIST* pDriveList) PURE;
    STDMETHOD(Finish_SetDatasetAttrib)() PURE;
    STDMETHOD(Begin_IsUnlockedCloneSupported)(LPCWSTR pszFiler) PURE;
    STDMETHOD(Finish_IsUnlockedCloneSupported)(BOOLEAN* pfSupported) PURE;

protected:
    ~AsyncIVSSSupport() = default;
};

interface ISnapShot : public IUnknown
{
    // Slot 3: the synchronous creation. TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED when the storage
    // system cannot make this snapshot as a backup snapshot.
    STDMETHOD(CreateSnapShot)(DRIVE_LIST* pDriveList, LPCWSTR pszSnapshotName) PURE;

protected:
    ~ISnapShot() = default;
};

interface IHyperVSupport : public IUnknown
{
    // Slot 3: whether the Hyper-V role is installed on the host.
    STDMETHOD(IsHyperVInstalled)(BOOLEAN* pfInstalled) PURE;
    // Slot 4: whether the Hyper-V role is enabled on the host.
    STDMETHOD(IsHyperVRoleEnabled)(BOOLEAN* pfEnabled) PURE;

protected:
    ~IHyperVSupport() = default;
};

// The service's outgoing interface, implemented by the client's event sink. The sink's answer
// S_OK lets the creation go on; E_UNEXPECTED abandons it.
interface _ISnapShotEvents : public IUnknown
{
    STDMETHOD(OnKVXSnapOpProgress)
    (LPCWSTR pszSnapshotName, LPCWSTR pszMachineName, LONG lProgress) PURE;
    // The three arguments are the service's; sinks do not read them.
    STDMETHOD(OnKVXSnapReady)(ULONG_PTR ulArg1, ULONG_PTR ulArg2, ULONG_PTR ulArg3) PURE;

protected:
    ~_ISnapShotEvents() = default;
};

PAL_DEFINE_UUIDOF(IVSSSupport, IID_IVSSSupport);
PAL_DEFINE_UUIDOF(AsyncIVSSSupport, IID_AsyncIVSSSupport);
PAL_DEFINE_UUIDOF(ISnapShot, IID_ISnapShot);
PAL_DEFINE_UUIDOF(IHyperVSupport, IID_IHyperVSupport);
PAL_DEFINE_UUIDOF(_ISnapShotEvents, IID__ISnapShotEvents);
