// The host's disks seen through the storage state.
#include "hostdisks.h"

#include "lunbuilder.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace vsssim {

std::u16string DiskDeviceName(size_t iDisk)
{
    std::u16string name = u"\\\\.\\PhysicalDrive";
    for (char c : std::to_string(iDisk))
        name.push_back(static_cast<char16_t>(c));
    return name;
}

std::string VolumeMountPoint(const std::u16string& volume)
{
    std::string mountPoint;
    for (char16_t c : volume)
        mountPoint.push_back(c < 0x80 ? static_cast<char>(std::toupper(static_cast<int>(c))) : '?');
    if (mountPoint.empty() || mountPoint.back() != '\\')
        mountPoint.push_back('\\');
    return mountPoint;
}

bool FindVolumeDisk(const storagesim::StateView& view, const std::string& mountPoint,
                    size_t* piDisk)
{
    for (size_t i = 0; i < view.disks.size(); ++i) {
        const auto& points = view.disks[i].mountPoints;
        if (std::find(points.begin(), points.end(), mountPoint) != points.end()) {
            *piDisk = i;
            return true;
        }
    }
    return false;
}

HRESULT BuildDiskLunInformation(const storagesim::DiskInfo& disk, VDS_LUN_INFORMATION* pLun)
{
    try {
        std::string vendor = disk.vendor;
        vendor.resize(std::max<size_t>(vendor.size(), 8), ' ');
        CLunBuilder builder;
        builder.DeviceType(0, 0)
            .CommandQueueing(TRUE)
            .VendorId(disk.vendor.c_str())
            .ProductId(disk.product.c_str())
            .ProductRevision(disk.revision.c_str())
            .SerialNumber(disk.serial.c_str())
            .DescriptorVersion(1)
            .AddIdentifier(VDSStorageIdCodeSetAscii, VDSStorageIdTypeVendorId,
                           vendor + disk.product + " " + disk.serial);
        // The port and address of the path the disk is reached through: for iSCSI the target's
        // name and its portal, for Fibre Channel the array port's and node's world wide names.
        std::string where = std::to_string(disk.port) + "." + std::to_string(disk.target);
        if (disk.transport == "fc") {
            BYTE port[8] = {0x50, 0x0a, 0x09, 0x80, 0x00, 0x00, disk.port, disk.target};
            BYTE node[8] = {0x50, 0x0a, 0x09, 0x81, 0x00, 0x00, disk.port, disk.target};
            builder.BusType(VDSBusTypeFibre)
                .AddInterconnect(VDS_IA_FCPH, std::string(reinterpret_cast<char*>(port), 8),
                                 std::string(reinterpret_cast<char*>(node), 8));
        } else {
            builder.BusType(VDSBusTypeiScsi)
                .AddInterconnect(VDS_IA_UNKNOWN, AnsiBytes("iqn.1992-08.com.orvane:tgt." + where),
                                 AnsiBytes("192.0.2." + std::to_string(disk.port) + ":3260"));
        }
        if (builder.Build(*pLun))
            return S_OK;
    } catch (const std::bad_alloc&) {
    }
    std::memset(static_cast<void*>(pLun), 0, sizeof(*pLun));
    return E_OUTOFMEMORY;
}

} // namespace vsssim
