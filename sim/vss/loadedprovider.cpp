// Loading and unloading a hardware provider.
#include "loadedprovider.h"
#include "providertime.h"

#include "pal/interlockedapi.h"
#include "pal/objbase.h"

namespace vsssim::detail {

namespace {

// The object VSS hands to OnLoad. Providers of this kind keep it or ignore it; none calls it.
class CProviderCallback final : public IUnknown
{
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (!IsEqualGUID(riid, IID_IUnknown))
            return E_NOINTERFACE;
        *ppv = static_cast<IUnknown*>(this);
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override
    {
        return static_cast<ULONG>(InterlockedIncrement(&m_lRefs));
    }
    STDMETHODIMP_(ULONG) Release() override
    {
        LONG lRefs = InterlockedDecrement(&m_lRefs);
        if (lRefs == 0)
            delete this;
        return static_cast<ULONG>(lRefs);
    }

private:
    LONG m_lRefs = 1;
};

} // namespace

HRESULT CLoadedProvider::Load(const ProviderRecord& record)
{
    Unload();
    CComPtr<IVssHardwareSnapshotProviderEx> lun;
    HRESULT hr =
        CoCreateInstance(record.classId, nullptr, CLSCTX_LOCAL_SERVER,
                         IID_IVssHardwareSnapshotProviderEx, reinterpret_cast<void**>(&lun));
    CComPtr<IVssProviderCreateSnapshotSet> set;
    if (SUCCEEDED(hr))
        hr = lun->QueryInterface(IID_IVssProviderCreateSnapshotSet, reinterpret_cast<void**>(&set));
    CComPtr<IVssProviderNotifications> notifications;
    if (SUCCEEDED(hr))
        hr = lun->QueryInterface(IID_IVssProviderNotifications,
                                 reinterpret_cast<void**>(&notifications));
    if (FAILED(hr))
        return hr;
    auto* pCallback = new (std::nothrow) CProviderCallback();
    if (!pCallback)
        return E_OUTOFMEMORY;
    {
        CProviderCallTimer timer;
        hr = notifications->OnLoad(pCallback);
    }
    pCallback->Release();
    if (FAILED(hr))
        return hr;
    m_id = record.id;
    m_lun = lun;
    m_set = set;
    m_notifications = notifications;
    return S_OK;
}

void CLoadedProvider::Unload()
{
    if (m_notifications) {
        CProviderCallTimer timer;
        m_notifications->OnUnload(FALSE);
    }
    m_notifications.Release();
    m_set.Release();
    m_lun.Release();
    m_id = GUID_NULL;
}

HRESULT FindHardwareProvider(const VSS_ID& id, ProviderRecord* pRecord)
{
    std::vector<ProviderRecord> records;
    HRESULT hr = ReadProviders(nullptr, &records);
    if (FAILED(hr))
        return hr;
    for (const ProviderRecord& record : records)
        if (IsEqualGUID(record.id, id) && record.type == VSS_PROV_HARDWARE) {
            *pRecord = record;
            return S_OK;
        }
    return VSS_E_PROVIDER_NOT_REGISTERED;
}

HRESULT ProviderFailure(HRESULT hr)
{
    switch (hr) {
    case E_OUTOFMEMORY:
    case VSS_E_PROVIDER_VETO:
    case VSS_E_INSUFFICIENT_STORAGE:
    case VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED:
    case VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER:
    case VSS_E_UNSUPPORTED_CONTEXT:
        return hr;
    default:
        return VSS_E_UNEXPECTED_PROVIDER_ERROR;
    }
}

} // namespace vsssim::detail
