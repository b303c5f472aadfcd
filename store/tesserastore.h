// The store subsystem over the Tessera storage service: each request of the core becomes calls
// of the service's objects, created per call; the snapshot creation goes through a
// CTesseraHelper per preparation; the registry records of mapped target LUNs let the core
// rebuild its target LUN map.
#pragma once

#include "core/linkedlist.h"
#include "core/targetluninfo.h"
#include "store/storesubsystem.h"
#include "store/tessera.h"
#include "store/tesserahelper.h"

// Where the records of mapped target LUNs live under HKEY_LOCAL_MACHINE: one subkey per target
// LUN, named by its serial number.
#define ORV_MAPPED_TARGET_LUNS_KEY W("Software\\Halvern\\VSSProvider\\MappedTargetLuns")

class CTesseraStoreSubSystem : public IStoreSubsystem
{
public:
    CTesseraStoreSubSystem();
    ~CTesseraStoreSubSystem() override;
    CTesseraStoreSubSystem(const CTesseraStoreSubSystem&) = delete;
    CTesseraStoreSubSystem& operator=(const CTesseraStoreSubSystem&) = delete;

    HRESULT Initialize() override;
    HRESULT PrepareSnapshot(LPCWSTR pszSnapshotName, CLinkedList<CSnapshotEntry>* pEntries,
                            LC_PAIR_ARRAY* pLcPairs, DWORD dwCreationKind) override;
    HRESULT CreateSnapshot() override;
    HRESULT CancelSnapshot(LPCWSTR pszSnapshotName, CLinkedList<CSnapshotEntry>* pEntries) override;
    HRESULT GetTargetLunInfo(LPCWSTR pszFiler, LPCWSTR pszSourceLunPath, LPCWSTR pszSnapshotName,
                             LONG eSnapshotAttr, CTargetLunInfo* pTargetLunInfo) override;
    HRESULT MapTargetLun(LPCWSTR pszSnapshotName, CTargetLunInfo* pTargetLunInfo) override;
    HRESULT DeleteTargetLun(LPCWSTR pszTargetLunPath, LPCWSTR pszTargetLunPath2) override;
    HRESULT VerifyLun(LPWSTR* ppszSerial, DWORD dwFlags, LPWSTR* ppszLunPath, LPWSTR* ppszFiler,
                      LPWSTR* ppszDrive) override;
    // Adds every record the map does not hold yet and the service still confirms; drops the
    // records the service no longer knows.
    HRESULT UpdateMappedTargetLuns(CLinkedList<CTargetLunInfo>* pTargetLunMap) override;
    // Creates or overwrites the record of a mapped target LUN.
    HRESULT SaveMappedLunDetails(LPCWSTR pszFiler, LPCWSTR pszSourceLunPath,
                                 LPCWSTR pszSnapshotName, LPCWSTR pszSerialNo,
                                 LPCWSTR pszTargetLunPath1, LPCWSTR pszTargetLunPath2,
                                 LPCWSTR pszDeviceId) override;
    HRESULT DeleteMappedLunDetails(LPCWSTR pszSerialNo) override;
    HRESULT UnmapTargetLun(LPCWSTR pszTargetLunPath, LPCWSTR pszTargetLunPath2) override;
    HRESULT SetDatasetAttrib(LPCWSTR pszSnapshotSetId,
                             CLinkedList<CSnapshotEntry>* pEntries) override;
    HRESULT IsUnlockedCloneSupported(LPCWSTR pszFiler, BOOLEAN* pfSupported) override;

    // Deletes a snapshot on the service; failures are traced only.
    HRESULT DeleteSnapshot(LPCWSTR pszFiler, LPCWSTR pszSourceLunPath, LPCWSTR pszSnapshotName);

private:
    // Steps shared by DeleteTargetLun and UnmapTargetLun.
    HRESULT RemoveTargetLun(LPCWSTR pszTargetLunPath, LPCWSTR pszTargetLunPath2,
                            BOOL fDeleteSnapshot);

    CTesseraHelper* m_pTessera;
};
