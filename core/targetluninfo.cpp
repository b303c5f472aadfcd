#include "core/targetluninfo.h"

#include "core/fields.h"

CTargetLunInfo::~CTargetLunInfo()
{
    FreeAll();
}

void CTargetLunInfo::FreeAll()
{
    FreeField(m_szVendorId);
    FreeField(m_szProductId);
    FreeField(m_szProductRevision);
    FreeField(m_szSerialNo);
    FreeField(m_szTargetLunPath1);
    FreeField(m_szTargetLunPath2);
    FreeField(m_szFilerName);
    FreeField(m_szSourceLunPath);
    FreeField(m_szDeviceId);
    FreeField(m_szSnapshotName);
}

BOOL CTargetLunInfo::CopyFrom(const CTargetLunInfo& source)
{
    if (&source == this)
        return TRUE;
    FreeAll();
    if (CopyFieldIfPresent(m_szVendorId, source.m_szVendorId) &&
        CopyFieldIfPresent(m_szProductId, source.m_szProductId) &&
        CopyFieldIfPresent(m_szProductRevision, source.m_szProductRevision) &&
        CopyFieldIfPresent(m_szSerialNo, source.m_szSerialNo) &&
        CopyFieldIfPresent(m_szTargetLunPath1, source.m_szTargetLunPath1) &&
        CopyFieldIfPresent(m_szTargetLunPath2, source.m_szTargetLunPath2) &&
        CopyFieldIfPresent(m_szFilerName, source.m_szFilerName) &&
        CopyFieldIfPresent(m_szSourceLunPath, source.m_szSourceLunPath) &&
        CopyFieldIfPresent(m_szDeviceId, source.m_szDeviceId) &&
        CopyFieldIfPresent(m_szSnapshotName, source.m_szSnapshotName))
        return TRUE;
    // Never half filled: a failed copy leaves an empty record.
    FreeAll();
    return FALSE;
}
