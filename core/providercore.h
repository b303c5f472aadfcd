// The provider core: the one object behind the provider front. It keeps the snapshot set that
// VSS is building (its snapshots, their LUN/clone pairs, the backup set of a recovery and the
// map of target LUNs mapped on the host) and issues every storage request through its store
// subsystem.
//
// The core takes no lock: VSS drives one snapshot set one call at a time, and the front calls
// the core without a lock of its own. Every operation leaves the set as it was when it fails.
#pragma once

#include "core/lcpair.h"
#include "core/linkedlist.h"
#include "core/snapshotentry.h"
#include "core/targetluninfo.h"
#include "store/storesubsystem.h"

#include "pal/guiddef.h"
#include "pal/vds.h"
#include "pal/windef.h"

// The configuration's StoreSubsystemType values; every value but one selects the one store.
#define SS_TESSERA 1

class CProviderCore
{
public:
    CProviderCore();
    ~CProviderCore();
    CProviderCore(const CProviderCore&) = delete;
    CProviderCore& operator=(const CProviderCore&) = delete;

    // Creates the store subsystem and initialises it. On failure the store stays created;
    // the caller destroys the core.
    HRESULT Initialize();

    // ---- LUN checks, before a set is built ----
    // The vendor id, product id and revision are not used: the serial number identifies the
    // LUN. The unlocked-clone flag is written only for a supported LUN.
    HRESULT IsSourceLunSupported(LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                 LPCWSTR pszProductRevision, LPCWSTR pszSerialNo, LONG* pfSupported,
                                 BOOLEAN* pfUnlockedCloneSupported);
    HRESULT IsUnlockedCloneSupported(LPCWSTR pszSerialNo, BOOLEAN* pfUnlockedCloneSupported);

    // ---- The snapshot set ----
    // Adopts a set id: the current one keeps the set growing, any other discards the set whole.
    HRESULT SetSnapshotSetId(const GUID* pguidSnapshotSetId);
    HRESULT AddSnapshot(const GUID* pguidSnapshotSetId, const GUID* pguidSnapshotId,
                        LPCWSTR pszVendorId, LPCWSTR pszProductId, LPCWSTR pszProductRevision,
                        LPCWSTR pszSerialNo, LPCWSTR pszDeviceName, LONG eSnapshotAttr);
    HRESULT EndPrepareSnapshots(const GUID* pguidSnapshotSetId);
    // One storage snapshot for the whole set, however many LUNs it holds.
    HRESULT CommitSnapshots(const GUID* pguidSnapshotSetId);
    // Cancels the current set, whatever id is given, and empties it.
    HRESULT AbortSnapshots(const GUID* pguidSnapshotSetId);
    // A copy of the snapshot of a source LUN into an existing entry. Writes no trace.
    HRESULT FindSnapshotBySourceLun(LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                    LPCWSTR pszProductRevision, LPCWSTR pszSerialNo,
                                    CSnapshotEntry* pEntry);
    void ResetSnapshotSet();
    void ClearSnapshotSetId() { m_guidSnapshotSetId = GUID_NULL; }
    void EnableRecovery() { m_fRecoveryEnabled = 1; }
    void DisableRecovery() { m_fRecoveryEnabled = 0; }

    // ---- Target LUNs ----
    // Asks the store for the target LUN of every snapshot of the set, once per set.
    HRESULT BuildTargetLunsInfo();
    HRESULT MapTargetLun(LPCWSTR pszVendorId, LPCWSTR pszProductId, LPCWSTR pszProductRevision,
                         LPCWSTR pszSerialNo, LPCWSTR pszLunPath1, LPCWSTR pszLunPath2,
                         LPCWSTR pszDeviceId);
    // Whether a LUN the host presents is a target LUN this provider mapped; its record is
    // copied into pInfo.
    HRESULT VerifyMappedTargetLun(LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                  LPCWSTR pszProductRevision, LPCWSTR pszSerialNo,
                                  CTargetLunInfo* pInfo);
    HRESULT DeleteTargetLun(LPCWSTR pszLunPath1, LPCWSTR pszLunPath2, LPCWSTR pszSerialNo);
    // Unmaps a batch of the provider's snapshot LUNs; the source records are not used.
    HRESULT MaskTargetLun(VDS_LUN_INFORMATION* pSnapshotLuns, VDS_LUN_INFORMATION* pSourceLuns,
                          DWORD dwCount);

    // ---- Recovery ----
    HRESULT OnLunStateChange(VDS_LUN_INFORMATION* pSnapshotLuns, VDS_LUN_INFORMATION* pSourceLuns,
                             DWORD dwCount, DWORD dwFlags);
    HRESULT AddToBackupSnapshotSet(VDS_LUN_INFORMATION* pSnapshotLuns,
                                   VDS_LUN_INFORMATION* pSourceLuns, DWORD dwCount);
    HRESULT PrepareBackupSnapshot(const GUID* pguidSnapshotSetId);
    HRESULT PostFinalCommitSnapshots(const GUID* pguidSnapshotSetId);

    // ---- What the set holds, for the front and for tests ----
    const GUID& SnapshotSetId() const { return m_guidSnapshotSetId; }
    BOOL IsRecoveryEnabled() const { return m_fRecoveryEnabled; }
    CLinkedList<CSnapshotEntry>& Snapshots() { return m_lstSnapshots; }
    CLinkedList<CSnapshotEntry>& BackupSnapshots() { return m_lstBackupSnapshots; }
    CLinkedList<CTargetLunInfo>& TargetLunMap() { return m_lstTargetLunMap; }
    CLinkedList<CLCPair>& LCPairs() { return m_lstLCPairs; }
    IStoreSubsystem* Store() const { return m_pStore; }

private:
    BOOL IsCurrentSet(const GUID* pguidSnapshotSetId) const;
    // Removes and destroys the first map record whose serial number begins with pszSerialNo.
    void RemoveMappedTargetLun(LPCWSTR pszSerialNo);

    GUID m_guidSnapshotSetId;
    BOOL m_fRecoveryEnabled;
    CLinkedList<CSnapshotEntry> m_lstSnapshots;
    CLinkedList<CSnapshotEntry> m_lstBackupSnapshots;
    CLinkedList<CTargetLunInfo> m_lstTargetLunMap;
    CLinkedList<CLCPair> m_lstLCPairs;
    IStoreSubsystem* m_pStore;
};
