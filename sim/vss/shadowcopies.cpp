// The shadow copies made: listed from the inventory, deleted through their provider.
#include "faults.h"
#include "inventory.h"
#include "loadedprovider.h"
#include "lunbuilder.h"
#include "lunencoding.h"
#include "vsssim.h"

namespace vsssim {

HRESULT DeleteShadowCopy(const VSS_ID& snapshotId)
{
    try {
        ShadowCopyInfo copy;
        HRESULT hr = detail::FindShadowCopy(snapshotId, &copy);
        if (FAILED(hr))
            return hr;
        // An exposed copy loses its letter before its disk goes.
        if (!copy.exposedName.empty() && FAILED(hr = UnexposeShadowCopy(snapshotId)))
            return hr;
        detail::ProviderRecord record;
        if (FAILED(hr = detail::FindHardwareProvider(copy.providerId, &record)))
            return hr;
        CLunRecord target;
        if (FAILED(hr = DecodeLunInformation(copy.targetLun, &target.Get())))
            return hr == E_OUTOFMEMORY ? hr : VSS_E_UNEXPECTED;
        // The provider is loaded for the one call, as VSS loads it to release a LUN.
        detail::CLoadedProvider provider;
        if (FAILED(hr = provider.Load(record)))
            return detail::ProviderFailure(hr);
        hr = detail::CallProvider("OnLunEmpty", [&] {
            return provider.Luns()->OnLunEmpty(copy.diskName.data(), &target.Get());
        });
        provider.Unload();
        if (FAILED(hr))
            return detail::ProviderFailure(hr);
        return detail::RemoveShadowCopy(snapshotId);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT QueryShadowCopies(std::vector<ShadowCopyInfo>* pShadowCopies)
{
    if (!pShadowCopies)
        return E_INVALIDARG;
    try {
        return detail::ReadShadowCopies(pShadowCopies);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace vsssim
