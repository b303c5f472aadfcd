// The store subsystem as the provider core drives it: every storage request of a snapshot set,
// in slot order.
#pragma once

#include "core/lcpairtypes.h"
#include "core/linkedlist.h"
#include "core/snapshotentry.h"
#include "core/targetluninfo.h"

#include "pal/windef.h"

class IStoreSubsystem
{
public:
    virtual ~IStoreSubsystem() = default;
    virtual HRESULT Initialize() = 0;
    virtual HRESULT PrepareSnapshot(LPCWSTR pszSnapshotName, CLinkedList<CSnapshotEntry>* pEntries,
                                    LC_PAIR_ARRAY* pLcPairs, DWORD dwCreationKind) = 0;
    virtual HRESULT CreateSnapshot() = 0;
    virtual HRESULT CancelSnapshot(LPCWSTR pszSnapshotName,
                                   CLinkedList<CSnapshotEntry>* pEntries) = 0;
    virtual HRESULT GetTargetLunInfo(LPCWSTR pszFiler, LPCWSTR pszSourceLunPath,
                                     LPCWSTR pszSnapshotName, LONG eSnapshotAttr,
                                     CTargetLunInfo* pTargetLunInfo) = 0;
    virtual HRESULT MapTargetLun(LPCWSTR pszSnapshotName, CTargetLunInfo* pTargetLunInfo) = 0;
    virtual HRESULT DeleteTargetLun(LPCWSTR pszTargetLunPath, LPCWSTR pszTargetLunPath2) = 0;
    virtual HRESULT VerifyLun(LPWSTR* ppszSerial, DWORD dwFlags, LPWSTR* ppszLunPath,
                              LPWSTR* ppszFiler, LPWSTR* ppszDrive) = 0;
    virtual HRESULT UpdateMappedTargetLuns(CLinkedList<CTargetLunInfo>* pTargetLunMap) = 0;
    virtual HRESULT SaveMappedLunDetails(LPCWSTR pszFiler, LPCWSTR pszSourceLunPath,
                                         LPCWSTR pszSnapshotName, LPCWSTR pszSerialNo,
                                         LPCWSTR pszTargetLunPath1, LPCWSTR pszTargetLunPath2,
                                         LPCWSTR pszDeviceId) = 0;
    virtual HRESULT DeleteMappedLunDetails(LPCWSTR pszSerialNo) = 0;
    virtual HRESULT UnmapTargetLun(LPCWSTR pszTargetLunPath, LPCWSTR pszTargetLunPath2) = 0;
    virtual HRESULT SetDatasetAttrib(LPCWSTR pszSnapshotSetId,
                                     CLinkedList<CSnapshotEntry>* pEntries) = 0;
    virtual HRESULT IsUnlockedCloneSupported(LPCWSTR pszFiler, BOOLEAN* pfSupported) = 0;
};
