// One target LUN: the LUN that exposes a snapshot on the host. The store describes target LUNs
// in these records, and the core keeps the LUNs it has mapped in a list of them (the target
// LUN map, keyed by SerialNo).
#pragma once

#include "core/linkedlist.h"
#include "pal/windef.h"

class CSnapshotEntry;

class CTargetLunInfo : public CListNode
{
public:
    CTargetLunInfo() = default;
    ~CTargetLunInfo();

    // Replaces every field with a copy of the source's, each only if present. When a copy
    // fails every field is left absent and the result is FALSE. The links are not copied.
    BOOL CopyFrom(const CTargetLunInfo& source);

    // Each setter takes ownership of a string the caller has already allocated. They do not
    // free an earlier value: the core sets only absent fields.
    void SetVendorId(LPWSTR pszVendorId) { m_szVendorId = pszVendorId; }
    void SetProductId(LPWSTR pszProductId) { m_szProductId = pszProductId; }
    void SetProductRevision(LPWSTR pszProductRevision) { m_szProductRevision = pszProductRevision; }
    void SetSerialNo(LPWSTR pszSerialNo) { m_szSerialNo = pszSerialNo; }
    void SetTargetLunPath1(LPWSTR pszTargetLunPath1) { m_szTargetLunPath1 = pszTargetLunPath1; }
    void SetTargetLunPath2(LPWSTR pszTargetLunPath2) { m_szTargetLunPath2 = pszTargetLunPath2; }
    void SetDeviceId(LPWSTR pszDeviceId) { m_szDeviceId = pszDeviceId; }
    void SetSnapshotName(LPWSTR pszSnapshotName) { m_szSnapshotName = pszSnapshotName; }
    // Both name where the snapshot was taken from, so they are always set together.
    void SetFilerNameAndSourceLunPath(LPWSTR pszFilerName, LPWSTR pszSourceLunPath)
    {
        m_szFilerName = pszFilerName;
        m_szSourceLunPath = pszSourceLunPath;
    }

    // The stored strings; the caller does not free them.
    LPCWSTR VendorId() const { return m_szVendorId; }
    LPCWSTR ProductId() const { return m_szProductId; }
    LPCWSTR ProductRevision() const { return m_szProductRevision; }
    LPCWSTR SerialNo() const { return m_szSerialNo; }
    LPCWSTR TargetLunPath1() const { return m_szTargetLunPath1; }
    LPCWSTR TargetLunPath2() const { return m_szTargetLunPath2; }
    LPCWSTR DeviceId() const { return m_szDeviceId; }
    LPCWSTR SnapshotName() const { return m_szSnapshotName; }
    LPCWSTR FilerName() const { return m_szFilerName; }
    LPCWSTR SourceLunPath() const { return m_szSourceLunPath; }

private:
    // A snapshot entry takes the target LUN's identity and paths over without copying them.
    friend class CSnapshotEntry;

    void FreeAll();

    LPWSTR m_szVendorId = nullptr;
    LPWSTR m_szProductId = nullptr;
    LPWSTR m_szProductRevision = nullptr;
    LPWSTR m_szSerialNo = nullptr;
    // Path1: the target LUN's path on the storage system.
    LPWSTR m_szTargetLunPath1 = nullptr;
    // Path2: filer, source LUN path and snapshot name joined by ':'.
    LPWSTR m_szTargetLunPath2 = nullptr;
    // "UNKNOWN" when the front maps a LUN.
    LPWSTR m_szDeviceId = nullptr;
    LPWSTR m_szSnapshotName = nullptr;
    LPWSTR m_szFilerName = nullptr;
    LPWSTR m_szSourceLunPath = nullptr;
};
