// The provider's own location of a snapshot LUN in its VDS record: one SCSI interconnect whose
// address bytes hold Path1 (the target LUN's path on the storage system) and whose port bytes
// hold Path2 ("filer:source LUN path:snapshot name"), both ANSI with their terminating NUL.
#pragma once

#include "pal/vds.h"
#include "pal/windef.h"

// Replaces the record's interconnect list with the single SCSI interconnect. Fails only with
// E_OUTOFMEMORY (a null path fails to convert), and then leaves the record with no
// interconnect at all rather than an entry with unset pointers.
HRESULT SetLunInterconnect(VDS_LUN_INFORMATION& lun, LPCWSTR pszPath1, LPCWSTR pszPath2);

// The record carries the provider's single interconnect, with both paths.
bool HasLunPaths(const VDS_LUN_INFORMATION& lun);
// A record a batch can act on: its four identity strings and its two paths.
bool IsCompleteLun(const VDS_LUN_INFORMATION& lun);
// Path1 and Path2 as the interconnect's bytes hold them; only for a record with its paths.
inline LPCSTR LunPath1(const VDS_LUN_INFORMATION& lun)
{
    return reinterpret_cast<LPCSTR>(lun.m_rgInterconnects[0].m_pbAddress);
}
inline LPCSTR LunPath2(const VDS_LUN_INFORMATION& lun)
{
    return reinterpret_cast<LPCSTR>(lun.m_rgInterconnects[0].m_pbPort);
}

// Rewrites a record that the core recognised as one of its mapped snapshot LUNs: no disk
// signature, iSCSI reported as SCSI, and the provider's interconnect.
HRESULT FixInterconnectAddress(VDS_LUN_INFORMATION& lun, LPCWSTR pszPath1, LPCWSTR pszPath2);
