// The host's disks as VSS sees them: the disk behind a volume, the disk's device name, and the
// LUN record VSS builds from what the disk reports.
#pragma once

#include "sim/storage/storagesim.h"

#include "pal/vds.h"
#include "pal/winerror.h"

#include <string>

namespace vsssim {

// "\\.\PhysicalDriveN", N the disk's position among the host's disks.
std::u16string DiskDeviceName(size_t iDisk);

// A volume named as a drive or mount point ("E:", "E:\", "e:\"), as its mount point "E:\".
std::string VolumeMountPoint(const std::u16string& volume);

// The position of the disk mounted at `mountPoint` in view.disks; false when none is.
bool FindVolumeDisk(const storagesim::StateView& view, const std::string& mountPoint,
                    size_t* piDisk);

// The record of a disk as VSS builds it: its SCSI inquiry strings, a device id descriptor with
// one ASCII vendor identifier (vendor in 8 columns, product, serial number), the bus type of its
// transport and one interconnect for it (an iSCSI target's name and portal, a Fibre Channel
// port's world wide names). Task-allocated: free it with FreeLunInformation. E_OUTOFMEMORY when
// an allocation fails, with `*pLun` all zero.
HRESULT BuildDiskLunInformation(const storagesim::DiskInfo& disk, VDS_LUN_INFORMATION* pLun);

} // namespace vsssim
