// One snapshot of a snapshot set: the VSS snapshot id, where the source LUN lives, the source
// LUN's identity and, once known, the identity and paths of the target LUN that exposes it.
#pragma once

#include "core/linkedlist.h"
#include "core/snapshotattr.h"
#include "pal/guiddef.h"
#include "pal/windef.h"

class CTargetLunInfo;

class CSnapshotEntry : public CListNode
{
public:
    CSnapshotEntry() = default;
    ~CSnapshotEntry();

    // Replaces the six source fields with copies of the arguments (a null argument becomes
    // the empty string). When a copy fails all six are left absent and the result is FALSE.
    BOOL SetSourceLunInfo(LPCWSTR pszVendorId, LPCWSTR pszProductId, LPCWSTR pszProductRevision,
                          LPCWSTR pszSerialNo, LPCWSTR pszPath, LPCWSTR pszDrive);

    // Moves the target record's identity and paths into the six target fields; the target
    // record's six fields are left absent. Nothing is allocated, so it cannot fail.
    void TakeTargetLunInfo(CTargetLunInfo& target);

    // Deep copy into this existing entry: the id, every string field present in the source
    // and the recovery attribute; an absent source field stays absent. When a copy fails the
    // whole entry is reset (no strings, zero id, attribute 0) and the result is FALSE. The
    // links are not copied.
    BOOL CopyFrom(const CSnapshotEntry& source);

    void SetSnapshotId(const GUID& guidSnapshotId) { m_guidSnapshotId = guidSnapshotId; }
    // Takes ownership of a string the caller has already allocated; an earlier value is not
    // freed, as the core sets the filer only once.
    void SetFiler(LPWSTR pszFiler) { m_szFiler = pszFiler; }
    void SetSnapshotAttr(LONG eSnapshotAttr) { m_eSnapshotAttr = eSnapshotAttr; }

    // The stored values; the caller does not free them.
    const GUID& SnapshotId() const { return m_guidSnapshotId; }
    LPCWSTR Filer() const { return m_szFiler; }
    LPCWSTR SourceLunVendorId() const { return m_szSourceLunVendorId; }
    LPCWSTR SourceLunProductId() const { return m_szSourceLunProductId; }
    LPCWSTR SourceLunProductRevision() const { return m_szSourceLunProductRevision; }
    LPCWSTR SourceSerialNo() const { return m_szSourceSerialNo; }
    LPCWSTR SourcePath() const { return m_szSourcePath; }
    LPCWSTR SourceDrive() const { return m_szSourceDrive; }
    LPCWSTR TargetLunVendorId() const { return m_szTargetLunVendorId; }
    LPCWSTR TargetLunProductId() const { return m_szTargetLunProductId; }
    LPCWSTR TargetLunProductRevision() const { return m_szTargetLunProductRevision; }
    LPCWSTR TargetLunSerialNo() const { return m_szTargetLunSerialNo; }
    LPCWSTR TargetLunPath() const { return m_szTargetLunPath; }
    LPCWSTR TargetLunPath2() const { return m_szTargetLunPath2; }
    LONG SnapshotAttr() const { return m_eSnapshotAttr; }

private:
    void FreeSourceLunInfo();
    void FreeTargetLunInfo();
    void Reset();

    GUID m_guidSnapshotId = GUID_NULL;
    // The storage system that exports the source LUN.
    LPWSTR m_szFiler = nullptr;
    LPWSTR m_szSourceLunVendorId = nullptr;
    LPWSTR m_szSourceLunProductId = nullptr;
    LPWSTR m_szSourceLunProductRevision = nullptr;
    LPWSTR m_szSourceSerialNo = nullptr;
    // The source LUN's path on the filer and its drive (mount point) on the host.
    LPWSTR m_szSourcePath = nullptr;
    LPWSTR m_szSourceDrive = nullptr;
    LPWSTR m_szTargetLunVendorId = nullptr;
    LPWSTR m_szTargetLunProductId = nullptr;
    LPWSTR m_szTargetLunProductRevision = nullptr;
    LPWSTR m_szTargetLunSerialNo = nullptr;
    // Path1 and Path2 of the target LUN.
    LPWSTR m_szTargetLunPath = nullptr;
    LPWSTR m_szTargetLunPath2 = nullptr;
    LONG m_eSnapshotAttr = SNAPSHOT_ATTR_NONE;
};
