// The VSS coordinator's administration interface (vsadmin.h): what a provider's setup calls to
// register itself with VSS and to unregister at removal, and the query of the registered
// providers. The coordinator implements it; callers reach it through CLSID_VSSCoordinator.
#pragma once

#include "pal/guiddef.h"
#include "pal/unknwn.h"
#include "pal/uuidof.h"
#include "pal/vss.h"
#include "pal/windef.h"

// {77ED5996-2F63-11D3-8A39-00C04F72D8E3}
inline constexpr IID IID_IVssAdmin = {
    0x77ED5996, 0x2F63, 0x11D3, {0x8A, 0x39, 0x00, 0xC0, 0x4F, 0x72, 0xD8, 0xE3}};
// {E579AB5F-1CC4-44B4-BED9-DE0991FF0623}
inline constexpr CLSID CLSID_VSSCoordinator = {
    0xE579AB5F, 0x1CC4, 0x44B4, {0xBE, 0xD9, 0xDE, 0x09, 0x91, 0xFF, 0x06, 0x23}};

interface IVssAdmin : public IUnknown
{
    // The first parameter is the provider's id although the SDK names it like a pointer.
    STDMETHOD(RegisterProvider)
    (VSS_ID pProviderId, CLSID ClassId, VSS_PWSZ pwszProviderName, VSS_PROVIDER_TYPE eProviderType,
     VSS_PWSZ pwszProviderVersion, VSS_ID ProviderVersionId) PURE;
    STDMETHOD(UnregisterProvider)(VSS_ID ProviderId) PURE;
    // An enumerator of one VSS_OBJECT_PROP of type VSS_OBJECT_PROVIDER per registered provider.
    STDMETHOD(QueryProviders)(IVssEnumObject** ppEnum) PURE;
    STDMETHOD(AbortAllSnapshotsInProgress)() PURE;

protected:
    ~IVssAdmin() = default;
};

PAL_DEFINE_UUIDOF(IVssAdmin, IID_IVssAdmin);
