#include "core/snapshotentry.h"

#include "core/fields.h"
#include "core/targetluninfo.h"
#include "provider/strings.h"

namespace {

// Moves an owned string from one field to another, leaving the source absent.
void MoveField(LPWSTR& pszDest, LPWSTR& pszSource)
{
    FreeField(pszDest);
    pszDest = pszSource;
    pszSource = nullptr;
}

} // namespace

CSnapshotEntry::~CSnapshotEntry()
{
    Reset();
}

void CSnapshotEntry::FreeSourceLunInfo()
{
    FreeField(m_szSourceLunVendorId);
    FreeField(m_szSourceLunProductId);
    FreeField(m_szSourceLunProductRevision);
    FreeField(m_szSourceSerialNo);
    FreeField(m_szSourcePath);
    FreeField(m_szSourceDrive);
}

void CSnapshotEntry::FreeTargetLunInfo()
{
    FreeField(m_szTargetLunVendorId);
    FreeField(m_szTargetLunProductId);
    FreeField(m_szTargetLunProductRevision);
    FreeField(m_szTargetLunSerialNo);
    FreeField(m_szTargetLunPath);
    FreeField(m_szTargetLunPath2);
}

void CSnapshotEntry::Reset()
{
    m_guidSnapshotId = GUID_NULL;
    FreeField(m_szFiler);
    FreeSourceLunInfo();
    FreeTargetLunInfo();
    m_eSnapshotAttr = SNAPSHOT_ATTR_NONE;
}

BOOL CSnapshotEntry::SetSourceLunInfo(LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                      LPCWSTR pszProductRevision, LPCWSTR pszSerialNo,
                                      LPCWSTR pszPath, LPCWSTR pszDrive)
{
    FreeSourceLunInfo();
    m_szSourceLunVendorId = DuplicateString(pszVendorId);
    m_szSourceLunProductId = DuplicateString(pszProductId);
    m_szSourceLunProductRevision = DuplicateString(pszProductRevision);
    m_szSourceSerialNo = DuplicateString(pszSerialNo);
    m_szSourcePath = DuplicateString(pszPath);
    m_szSourceDrive = DuplicateString(pszDrive);
    if (m_szSourceLunVendorId && m_szSourceLunProductId && m_szSourceLunProductRevision &&
        m_szSourceSerialNo && m_szSourcePath && m_szSourceDrive)
        return TRUE;
    // The identity is used only whole: part of it would match LUNs it does not describe.
    FreeSourceLunInfo();
    return FALSE;
}

void CSnapshotEntry::TakeTargetLunInfo(CTargetLunInfo& target)
{
    MoveField(m_szTargetLunVendorId, target.m_szVendorId);
    MoveField(m_szTargetLunProductId, target.m_szProductId);
    MoveField(m_szTargetLunProductRevision, target.m_szProductRevision);
    MoveField(m_szTargetLunSerialNo, target.m_szSerialNo);
    MoveField(m_szTargetLunPath, target.m_szTargetLunPath1);
    MoveField(m_szTargetLunPath2, target.m_szTargetLunPath2);
}

BOOL CSnapshotEntry::CopyFrom(const CSnapshotEntry& source)
{
    if (&source == this)
        return TRUE;
    m_guidSnapshotId = source.m_guidSnapshotId;
    if (CopyFieldIfPresent(m_szFiler, source.m_szFiler) &&
        CopyFieldIfPresent(m_szSourceLunVendorId, source.m_szSourceLunVendorId) &&
        CopyFieldIfPresent(m_szSourceLunProductId, source.m_szSourceLunProductId) &&
        CopyFieldIfPresent(m_szSourceLunProductRevision, source.m_szSourceLunProductRevision) &&
        CopyFieldIfPresent(m_szSourceSerialNo, source.m_szSourceSerialNo) &&
        CopyFieldIfPresent(m_szSourcePath, source.m_szSourcePath) &&
        CopyFieldIfPresent(m_szSourceDrive, source.m_szSourceDrive) &&
        CopyFieldIfPresent(m_szTargetLunVendorId, source.m_szTargetLunVendorId) &&
        CopyFieldIfPresent(m_szTargetLunProductId, source.m_szTargetLunProductId) &&
        CopyFieldIfPresent(m_szTargetLunProductRevision, source.m_szTargetLunProductRevision) &&
        CopyFieldIfPresent(m_szTargetLunSerialNo, source.m_szTargetLunSerialNo) &&
        CopyFieldIfPresent(m_szTargetLunPath, source.m_szTargetLunPath) &&
        CopyFieldIfPresent(m_szTargetLunPath2, source.m_szTargetLunPath2)) {
        m_eSnapshotAttr = source.m_eSnapshotAttr;
        return TRUE;
    }
    // A half copy would pass for a different snapshot; the entry is emptied instead.
    Reset();
    return FALSE;
}
