// ImportShadowCopySet: a transportable set surfaced on this host from its description.
#include "backupdocument.h"
#include "faults.h"
#include "inventory.h"
#include "loadedprovider.h"
#include "lunencoding.h"
#include "surface.h"
#include "vsssim.h"

namespace vsssim {

namespace {

HRESULT Import(std::vector<ShadowCopyInfo>& copies)
{
    if (!(copies.front().lContext & VSS_VOLSNAP_ATTR_TRANSPORTABLE))
        return VSS_E_INVALID_XML_DOCUMENT;
    for (const ShadowCopyInfo& copy : copies) {
        ShadowCopyInfo known;
        HRESULT hr = detail::FindShadowCopy(copy.snapshotId, &known);
        if (SUCCEEDED(hr) && !known.diskName.empty())
            return VSS_E_OBJECT_ALREADY_EXISTS;
        if (FAILED(hr) && hr != VSS_E_OBJECT_NOT_FOUND)
            return hr;
    }
    detail::ProviderRecord record;
    HRESULT hr = detail::FindHardwareProvider(copies.front().providerId, &record);
    if (FAILED(hr))
        return hr;
    detail::CLunRecords targets(copies.size());
    for (size_t i = 0; i < copies.size(); ++i)
        if (FAILED(hr = DecodeLunInformation(copies[i].targetLun, &targets[i])))
            return hr == E_OUTOFMEMORY ? hr : VSS_E_INVALID_XML_DOCUMENT;
    detail::CLoadedProvider provider;
    if (FAILED(hr = provider.Load(record)))
        return detail::ProviderFailure(hr);
    std::vector<std::u16string> disks;
    auto count = static_cast<LONG>(copies.size());
    hr = detail::SurfaceTargetLuns(provider, count, targets.Data(), &disks);
    if (FAILED(hr)) {
        // The disks that did appear are given back.
        for (size_t i = 0; i < disks.size(); ++i)
            if (!disks[i].empty())
                detail::CallProvider("OnLunEmpty", [&] {
                    return provider.Luns()->OnLunEmpty(disks[i].data(), &targets[i]);
                });
        return hr;
    }
    for (size_t i = 0; i < copies.size(); ++i) {
        copies[i].diskName = disks[i];
        copies[i].targetLun = EncodeLunInformation(targets[i]);
        copies[i].lAttributes |= VSS_VOLSNAP_ATTR_IMPORTED;
        detail::RemoveShadowCopy(copies[i].snapshotId);
    }
    return detail::AddShadowCopies(copies);
}

} // namespace

HRESULT ImportShadowCopySet(const std::string& backupComponentsDocument, VSS_ID* pSetId)
{
    if (!pSetId)
        return E_INVALIDARG;
    *pSetId = GUID_NULL;
    try {
        std::vector<ShadowCopyInfo> copies;
        HRESULT hr = detail::ReadBackupComponentsDocument(backupComponentsDocument, &copies);
        if (SUCCEEDED(hr))
            hr = Import(copies);
        if (SUCCEEDED(hr))
            *pSetId = copies.front().setId;
        return hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace vsssim
