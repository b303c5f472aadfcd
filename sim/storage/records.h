// The records the service exchanges with its clients: building the task-allocated blocks it
// hands out, and reading the ones passed in.
#pragma once

#include "model.h"
#include "store/tessera.h"

#include <string>
#include <vector>

namespace storagesim::detail {

// ExtraDword1 of a disk: how the host reaches it.
constexpr DWORD kTransportIscsi = 1;
constexpr DWORD kTransportFibreChannel = 2;

// Fills the caller's list: one block of Count records, every string and mount point array its
// own task block. On failure everything allocated is freed and the list is left empty.
HRESULT BuildDiskList(const std::vector<CDiskRecord>& disks, const std::string& machine,
                      VD_INFO_LIST* pList);
// Frees one record's strings and mount points (not the record itself).
void FreeDiskRecord(VD_INFO* pDisk);
// One task block with task-allocated strings; nothing on failure.
HRESULT BuildTargetLunInfo(const CTargetIdentity& target, TARGET_LUN_INFO** ppInfo);

std::string Utf8(LPCWSTR psz);
// The drives of a list; E_POINTER for a missing list, E_INVALIDARG for a missing drive.
HRESULT ReadDrives(const DRIVE_LIST* pList, std::vector<std::string>* pDrives);
// The LUNs of a creation: each pair's clone when it names one, else its source LUN; without
// pairs, the LUNs mounted at the drives. E_INVALIDARG for a pair without filer or LUN path.
HRESULT ReadCreationLuns(const DRIVE_LIST* pDrives, const LC_PAIR_ARRAY* pPairs,
                         std::vector<CCreationLun>* pLuns);

} // namespace storagesim::detail
