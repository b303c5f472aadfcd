// The store subsystem over the Tessera storage service. For now: the registry records of the
// target LUNs the provider has mapped, which let the core rebuild its target LUN map.
#pragma once

#include "core/linkedlist.h"
#include "core/targetluninfo.h"
#include "store/tessera.h"

// Where the records of mapped target LUNs live under HKEY_LOCAL_MACHINE: one subkey per target
// LUN, named by its serial number.
#define ORV_MAPPED_TARGET_LUNS_KEY W("Software\\Halvern\\VSSProvider\\MappedTargetLuns")

class CTesseraStoreSubSystem
{
public:
    CTesseraStoreSubSystem() = default;
    CTesseraStoreSubSystem(const CTesseraStoreSubSystem&) = delete;
    CTesseraStoreSubSystem& operator=(const CTesseraStoreSubSystem&) = delete;

    // Creates or overwrites the record of a mapped target LUN.
    HRESULT SaveMappedLunDetails(LPCWSTR pszFiler, LPCWSTR pszSourceLunPath,
                                 LPCWSTR pszSnapshotName, LPCWSTR pszSerialNo,
                                 LPCWSTR pszTargetLunPath1, LPCWSTR pszTargetLunPath2,
                                 LPCWSTR pszDeviceId);
    HRESULT DeleteMappedLunDetails(LPCWSTR pszSerialNo);
    // Adds every record the map does not hold yet and the service still confirms; drops the
    // records the service no longer knows.
    HRESULT UpdateMappedTargetLuns(CLinkedList<CTargetLunInfo>* pTargetLunMap);
};
