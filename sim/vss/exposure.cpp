// Exposure of a shadow copy as a drive letter: its target LUN's disk mounted on the host.
#include "database.h"
#include "inventory.h"
#include "lunbuilder.h"
#include "lunencoding.h"
#include "vsssim.h"

#include "sim/storage/simcodes.h"
#include "sim/storage/storagesim.h"

namespace vsssim {

namespace {

// "X:" or "X:\" as the letter's mount point "X:\"; empty for anything else.
std::string DriveMountPoint(const std::u16string& name)
{
    if ((name.size() != 2 && !(name.size() == 3 && name[2] == u'\\')) || name[1] != u':')
        return std::string();
    char16_t c = name[0];
    if (c >= u'a' && c <= u'z')
        c = static_cast<char16_t>(c - u'a' + u'A');
    if (c < u'A' || c > u'Z')
        return std::string();
    return std::string{static_cast<char>(c), ':', '\\'};
}

HRESULT SetExposedName(const VSS_ID& snapshotId, const std::u16string& name)
{
    return detail::WithState(nullptr, [&](detail::CDatabase& db) {
        db.Prepare("UPDATE shadow_copies SET exposed_name = ?1 WHERE snapshot_id = ?2")
            .Bind(1, name)
            .Bind(2, snapshotId)
            .Step();
        return db.Changes() == 1 ? S_OK : VSS_E_OBJECT_NOT_FOUND;
    });
}

} // namespace

HRESULT ExposeShadowCopy(const VSS_ID& snapshotId, const std::u16string& exposeAs,
                         std::u16string* pExposedName)
{
    if (!pExposedName)
        return E_INVALIDARG;
    pExposedName->clear();
    try {
        const std::string mountPoint = DriveMountPoint(exposeAs);
        if (mountPoint.empty())
            return E_INVALIDARG;
        ShadowCopyInfo copy;
        HRESULT hr = detail::FindShadowCopy(snapshotId, &copy);
        if (FAILED(hr))
            return hr;
        // A transportable copy has no disk on this host until it is imported.
        if (copy.diskName.empty())
            return VSS_E_BAD_STATE;
        if (!copy.exposedName.empty())
            return VSS_E_OBJECT_ALREADY_EXISTS;
        CLunRecord target;
        if (FAILED(hr = DecodeLunInformation(copy.targetLun, &target.Get())))
            return hr == E_OUTOFMEMORY ? hr : VSS_E_UNEXPECTED;
        if (!target->m_szSerialNumber)
            return VSS_E_UNEXPECTED;
        hr = storagesim::MountDisk(target->m_szSerialNumber, mountPoint);
        if (hr == HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS))
            return VSS_E_OBJECT_ALREADY_EXISTS;
        if (FAILED(hr))
            return VSS_E_UNEXPECTED;
        const std::u16string exposed{static_cast<char16_t>(mountPoint[0]), u':'};
        if (FAILED(hr = SetExposedName(snapshotId, exposed))) {
            storagesim::UnmountDisk(mountPoint);
            return hr;
        }
        *pExposedName = exposed;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT UnexposeShadowCopy(const VSS_ID& snapshotId)
{
    try {
        ShadowCopyInfo copy;
        HRESULT hr = detail::FindShadowCopy(snapshotId, &copy);
        if (FAILED(hr))
            return hr;
        if (copy.exposedName.empty())
            return VSS_E_OBJECT_NOT_FOUND;
        const std::string mountPoint = DriveMountPoint(copy.exposedName);
        // The letter may have gone with its disk already; the record is what remains to clear.
        hr = storagesim::UnmountDisk(mountPoint);
        if (FAILED(hr) && hr != TESSERA_E_DRIVE_NOT_FOUND)
            return VSS_E_UNEXPECTED;
        return SetExposedName(snapshotId, std::u16string());
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace vsssim
