// The host's view of its volumes' data: the LUN behind a volume's disk, read and written
// through the simulated storage, with the writes gated by VSS's hold.
#include "hostdisks.h"
#include "vsssim.h"
#include "writehold.h"

#include "sim/storage/simcodes.h"

#include <algorithm>
#include <cctype>

namespace vsssim {

namespace {

// The disk mounted at the volume, its mount points compared without regard to case as the
// host compares paths.
HRESULT FindVolumeLun(const std::u16string& volume, storagesim::DiskInfo* pDisk)
{
    storagesim::StateView view;
    HRESULT hr = storagesim::ReadState(&view);
    if (FAILED(hr))
        return hr;
    const std::string mountPoint = VolumeMountPoint(volume);
    for (const storagesim::DiskInfo& disk : view.disks) {
        for (const std::string& used : disk.mountPoints) {
            if (used.size() != mountPoint.size() ||
                !std::equal(used.begin(), used.end(), mountPoint.begin(), [](char a, char b) {
                    return std::toupper(static_cast<unsigned char>(a)) == b;
                }))
                continue;
            if (disk.filer.empty())
                return TESSERA_E_DRIVE_NOT_FOUND;
            *pDisk = disk;
            return S_OK;
        }
    }
    return TESSERA_E_DRIVE_NOT_FOUND;
}

} // namespace

HRESULT WriteVolumeData(const std::u16string& volume, DWORD dwOffset, const std::string& data)
{
    try {
        storagesim::DiskInfo disk;
        HRESULT hr = FindVolumeLun(volume, &disk);
        if (FAILED(hr))
            return hr;
        if (disk.fReadonly)
            return HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT);
        detail::CLunWriteLock lock;
        if (FAILED(hr = lock.Acquire(disk.filer, disk.path, false)))
            return hr;
        return storagesim::WriteLunData(disk.filer, disk.path, dwOffset, data);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT ReadVolumeData(const std::u16string& volume, DWORD dwOffset, DWORD cb, std::string* pData)
{
    if (!pData)
        return E_INVALIDARG;
    try {
        storagesim::DiskInfo disk;
        HRESULT hr = FindVolumeLun(volume, &disk);
        if (FAILED(hr))
            return hr;
        return storagesim::ReadLunData(disk.filer, disk.path, dwOffset, cb, pData);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace vsssim
