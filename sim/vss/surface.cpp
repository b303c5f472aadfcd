// Surfacing target LUNs on the host.
#include "surface.h"

#include "faults.h"
#include "hostdisks.h"
#include "lunbuilder.h"

#include <set>

namespace vsssim::detail {

HRESULT SurfaceTargetLuns(CLoadedProvider& provider, LONG count, VDS_LUN_INFORMATION* pTargets,
                          std::vector<std::u16string>* pDisks)
{
    pDisks->assign(static_cast<size_t>(count), std::u16string());
    storagesim::StateView before;
    if (FAILED(storagesim::ReadState(&before)))
        return VSS_E_UNEXPECTED;
    HRESULT hr =
        CallProvider("LocateLuns", [&] { return provider.Luns()->LocateLuns(count, pTargets); });
    if (FAILED(hr))
        return ProviderFailure(hr);
    // The host rescans: each disk that was not there is described and offered to the provider.
    storagesim::StateView after;
    if (FAILED(storagesim::ReadState(&after)))
        return VSS_E_UNEXPECTED;
    std::set<std::string> known;
    for (const auto& disk : before.disks)
        known.insert(disk.filer + ":" + disk.path + ":" + disk.serial);
    for (size_t iDisk = 0; iDisk < after.disks.size(); ++iDisk) {
        const storagesim::DiskInfo& disk = after.disks[iDisk];
        if (known.count(disk.filer + ":" + disk.path + ":" + disk.serial))
            continue;
        CLunRecord lun;
        if (FAILED(hr = BuildDiskLunInformation(disk, &lun.Get())))
            return hr;
        std::u16string device = DiskDeviceName(iDisk);
        BOOL fSupported = FALSE;
        hr = CallProvider("FillInLunInfo", [&] {
            return provider.Luns()->FillInLunInfo(device.data(), &lun.Get(), &fSupported);
        });
        if (FAILED(hr))
            return ProviderFailure(hr);
        for (LONG i = 0; fSupported && i < count; ++i)
            if (pTargets[i].m_szSerialNumber && lun->m_szSerialNumber &&
                std::string(pTargets[i].m_szSerialNumber) == lun->m_szSerialNumber)
                (*pDisks)[static_cast<size_t>(i)] = device;
    }
    for (const std::u16string& disk : *pDisks)
        if (disk.empty())
            return VSS_E_UNEXPECTED_PROVIDER_ERROR;
    return S_OK;
}

} // namespace vsssim::detail
