// The process-wide cache of the storage service's virtual disk list, the verification of a LUN
// against it, and the creation of the service's objects that every other store operation uses.
#pragma once

#include "store/tessera.h"

// Creates the service's objects (local server). On failure the out pointer is NULL.
HRESULT GetVssSupport(IVSSSupport** ppVssSupport);
HRESULT GetHyperVSupport(IHyperVSupport** ppHyperVSupport);

// Looks a LUN up by serial number (when *ppszSerial is set) or by LUN path. The first call, and
// the first after SetVDCacheFalse, enumerates the service's virtual disks and keeps a deep copy.
// Out strings are task-allocated and belong to the caller; NULL when no disk matched.
HRESULT VerifyLun(LPWSTR* ppszSerial, DWORD dwFlags, LPWSTR* ppszLunPath, LPWSTR* ppszFiler,
                  LPWSTR* ppszDrive);

// Drops the cached list, so that the next VerifyLun asks the service again.
void SetVDCacheFalse();

// Writes one disk at trace level 3.
void DumpVirtualDiskInfo(const VD_INFO& info);
