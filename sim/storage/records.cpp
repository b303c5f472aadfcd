// Task-allocated records of the service.
#include "records.h"

#include "pal/palcontrol.h"

#include <cstring>

namespace storagesim::detail {

namespace {

LPWSTR TaskString(const std::string& utf8)
{
    std::u16string text = pal::Utf8ToUtf16(utf8);
    auto* psz = static_cast<LPWSTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
    if (psz) {
        std::memcpy(psz, text.data(), text.size() * sizeof(WCHAR));
        psz[text.size()] = 0;
    }
    return psz;
}

// A 12-character ANSI serial number in a zeroed 13-byte block.
LPSTR TaskSerial(const std::string& serial)
{
    auto* psz = static_cast<LPSTR>(CoTaskMemAlloc(13));
    if (psz) {
        std::memset(psz, 0, 13);
        std::memcpy(psz, serial.data(), serial.size() < 12 ? serial.size() : 12);
    }
    return psz;
}

HRESULT FillDisk(const CDiskRecord& disk, const std::string& machine, VD_INFO* pInfo)
{
    pInfo->ExtraDword1 = disk.transport == "fc" ? kTransportFibreChannel : kTransportIscsi;
    pInfo->ExtraDword2 = static_cast<DWORD>(disk.llLun);
    bool fOk = (pInfo->ExtraString1 = TaskString(machine)) &&
               (pInfo->Filer = TaskString(disk.filer)) &&
               (pInfo->FilerPath = TaskString(disk.path)) &&
               (pInfo->ExtraString2 = TaskString(machine + "_" + disk.transport)) &&
               (pInfo->SerialNumber = TaskSerial(disk.serial));
    if (!fOk)
        return E_OUTOFMEMORY;
    pInfo->BackedBySnapshot = disk.snapshot.empty() ? 0 : 1;
    if (pInfo->BackedBySnapshot && !(pInfo->SnapshotName = TaskString(disk.snapshot)))
        return E_OUTOFMEMORY;
    pInfo->Shared = disk.fShared ? 1 : 0;
    pInfo->SCSIPort = disk.port;
    pInfo->Bus = disk.bus;
    pInfo->Target = disk.target;
    pInfo->LUN = disk.lun;
    pInfo->Readonly = disk.fReadonly ? 1 : 0;
    pInfo->Size = disk.ullSize;
    if (!disk.mountPoints.empty()) {
        pInfo->MountPoint =
            static_cast<LPWSTR*>(CoTaskMemAlloc(disk.mountPoints.size() * sizeof(LPWSTR)));
        if (!pInfo->MountPoint)
            return E_OUTOFMEMORY;
        std::memset(pInfo->MountPoint, 0, disk.mountPoints.size() * sizeof(LPWSTR));
        pInfo->MountPointCount = static_cast<ULONG>(disk.mountPoints.size());
        for (size_t i = 0; i < disk.mountPoints.size(); ++i)
            if (!(pInfo->MountPoint[i] = TaskString(disk.mountPoints[i])))
                return E_OUTOFMEMORY;
    }
    return S_OK;
}

} // namespace

void FreeDiskRecord(VD_INFO* pDisk)
{
    CoTaskMemFree(pDisk->ExtraString1);
    CoTaskMemFree(pDisk->Filer);
    CoTaskMemFree(pDisk->FilerPath);
    CoTaskMemFree(pDisk->ExtraString2);
    CoTaskMemFree(pDisk->SerialNumber);
    CoTaskMemFree(pDisk->SnapshotName);
    if (pDisk->MountPoint) {
        for (ULONG i = 0; i < pDisk->MountPointCount; ++i)
            CoTaskMemFree(pDisk->MountPoint[i]);
        CoTaskMemFree(pDisk->MountPoint);
    }
    std::memset(static_cast<void*>(pDisk), 0, sizeof(*pDisk));
}

HRESULT BuildDiskList(const std::vector<CDiskRecord>& disks, const std::string& machine,
                      VD_INFO_LIST* pList)
{
    pList->Count = 0;
    pList->Disks = nullptr;
    if (disks.empty())
        return S_OK;
    auto* pDisks = static_cast<VD_INFO*>(CoTaskMemAlloc(disks.size() * sizeof(VD_INFO)));
    if (!pDisks)
        return E_OUTOFMEMORY;
    std::memset(static_cast<void*>(pDisks), 0, disks.size() * sizeof(VD_INFO));
    for (size_t i = 0; i < disks.size(); ++i) {
        if (FAILED(FillDisk(disks[i], machine, &pDisks[i]))) {
            for (size_t j = 0; j <= i; ++j)
                FreeDiskRecord(&pDisks[j]);
            CoTaskMemFree(pDisks);
            return E_OUTOFMEMORY;
        }
    }
    pList->Count = static_cast<ULONG>(disks.size());
    pList->Disks = pDisks;
    return S_OK;
}

HRESULT BuildTargetLunInfo(const CTargetIdentity& target, TARGET_LUN_INFO** ppInfo)
{
    *ppInfo = nullptr;
    auto* pInfo = static_cast<TARGET_LUN_INFO*>(CoTaskMemAlloc(sizeof(TARGET_LUN_INFO)));
    if (!pInfo)
        return E_OUTOFMEMORY;
    std::memset(static_cast<void*>(pInfo), 0, sizeof(*pInfo));
    bool fOk = (pInfo->lunLocation.filerName = TaskString(target.filer)) &&
               (pInfo->lunLocation.lunPath = TaskString(target.path)) &&
               (pInfo->serialNumber = TaskString(target.serial)) &&
               (pInfo->vendorId = TaskString(target.vendor)) &&
               (pInfo->productId = TaskString(target.product)) &&
               (pInfo->productRevision = TaskString(target.revision));
    if (!fOk) {
        CoTaskMemFree(pInfo->lunLocation.filerName);
        CoTaskMemFree(pInfo->lunLocation.lunPath);
        CoTaskMemFree(pInfo->serialNumber);
        CoTaskMemFree(pInfo->vendorId);
        CoTaskMemFree(pInfo->productId);
        CoTaskMemFree(pInfo->productRevision);
        CoTaskMemFree(pInfo);
        return E_OUTOFMEMORY;
    }
    *ppInfo = pInfo;
    return S_OK;
}

std::string Utf8(LPCWSTR psz)
{
    return psz ? pal::Utf16ToUtf8(psz) : std::string();
}

HRESULT ReadDrives(const DRIVE_LIST* pList, std::vector<std::string>* pDrives)
{
    if (!pList)
        return E_POINTER;
    if (pList->Count > 0 && !pList->Drives)
        return E_INVALIDARG;
    for (ULONG i = 0; i < pList->Count; ++i) {
        if (!pList->Drives[i].Drive)
            return E_INVALIDARG;
        pDrives->push_back(Utf8(pList->Drives[i].Drive));
    }
    return S_OK;
}

HRESULT ReadCreationLuns(const DRIVE_LIST* pDrives, const LC_PAIR_ARRAY* pPairs,
                         std::vector<CCreationLun>* pLuns)
{
    if (pPairs) {
        if (pPairs->Count > 0 && !pPairs->Pairs)
            return E_INVALIDARG;
        for (ULONG i = 0; i < pPairs->Count; ++i) {
            const LC_PAIR& pair = pPairs->Pairs[i];
            if (!pair.Filer || !pair.LunPath)
                return E_INVALIDARG;
            // A backup set names the recovered clone: the snapshot is of that LUN.
            LPCWSTR pszPath = (pair.Clone && pair.Clone[0]) ? pair.Clone : pair.LunPath;
            pLuns->push_back({Utf8(pair.Filer), Utf8(pszPath), std::string()});
        }
    }
    // The pairs name the LUNs exactly; the drives are only the host's view of them and
    // decide alone when there are no pairs.
    if (pDrives && pLuns->empty()) {
        std::vector<std::string> drives;
        if (HRESULT hr = ReadDrives(pDrives, &drives); FAILED(hr))
            return hr;
        for (auto& drive : drives)
            pLuns->push_back({std::string(), std::string(), std::move(drive)});
    }
    return S_OK;
}

} // namespace storagesim::detail
