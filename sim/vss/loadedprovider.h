// A hardware provider as VSS holds it while it works with it: created in the provider's own
// process (CLSCTX_LOCAL_SERVER), told it is loaded, and told it is unloaded before its
// interfaces are released.
#pragma once

#include "state.h"
#include "timedprovider.h"

#include "pal/atlbase.h"
#include "pal/vsprov.h"

namespace vsssim::detail {

class CLoadedProvider
{
public:
    CLoadedProvider() = default;
    CLoadedProvider(const CLoadedProvider&) = delete;
    CLoadedProvider& operator=(const CLoadedProvider&) = delete;
    ~CLoadedProvider() { Unload(); }

    // Activates the registration's class and calls OnLoad with VSS's callback object.
    HRESULT Load(const ProviderRecord& record);
    // OnUnload(FALSE) and the release of every interface; nothing when not loaded.
    void Unload();

    bool Loaded() const { return m_lun.p != nullptr; }
    const VSS_ID& Id() const { return m_id; }
    // The provider's interfaces, each call timed (see timedprovider.h).
    IVssHardwareSnapshotProvider* Luns() { return m_lun.p ? &m_timedLuns : nullptr; }
    IVssProviderCreateSnapshotSet* Set() { return m_set.p ? &m_timedSet : nullptr; }

private:
    VSS_ID m_id = GUID_NULL;
    CComPtr<IVssHardwareSnapshotProvider> m_lun;
    CComPtr<IVssProviderCreateSnapshotSet> m_set;
    CComPtr<IVssProviderNotifications> m_notifications;
    CTimedLuns m_timedLuns;
    CTimedSet m_timedSet;
};

// The registered hardware provider whose id is `id`; VSS_E_PROVIDER_NOT_REGISTERED when none.
HRESULT FindHardwareProvider(const VSS_ID& id, ProviderRecord* pRecord);

// What VSS answers its requester for a provider's failure: the codes a provider may return by
// its contract pass through, any other is VSS_E_UNEXPECTED_PROVIDER_ERROR.
HRESULT ProviderFailure(HRESULT hr);

} // namespace vsssim::detail
