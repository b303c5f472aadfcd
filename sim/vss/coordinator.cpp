// The coordinator's administration object (IVssAdmin) and its class object.
#include "enumobject.h"
#include "state.h"
#include "vsssim.h"

#include "pal/atlcom.h"
#include "pal/objbase.h"
#include "pal/palcontrol.h"

#include <memory>
#include <new>

namespace vsssim {

namespace detail {

namespace {

constexpr BYTE kWorkstation = 1; // VER_NT_WORKSTATION

class CCoordinator : public CComObjectRootEx<CComMultiThreadModel>, public IVssAdmin
{
public:
    BEGIN_COM_MAP(CCoordinator)
    COM_INTERFACE_ENTRY(IVssAdmin)
    END_COM_MAP()

    STDMETHODIMP RegisterProvider(VSS_ID pProviderId, CLSID ClassId, VSS_PWSZ pwszProviderName,
                                  VSS_PROVIDER_TYPE eProviderType, VSS_PWSZ pwszProviderVersion,
                                  VSS_ID ProviderVersionId) override
    {
        if (!pal::ProcessAccountIsAdministrator())
            return E_ACCESSDENIED;
        // Providers register as software or hardware ones; hardware providers run on server
        // editions of Windows only.
        bool fTypeValid = eProviderType == VSS_PROV_SOFTWARE ||
                          (eProviderType == VSS_PROV_HARDWARE &&
                           pal::GetHostProfile().wProductType != kWorkstation);
        if (!pwszProviderName || !pwszProviderVersion || !fTypeValid)
            return E_INVALIDARG;
        try {
            ProviderRecord record{pProviderId,         ClassId,
                                  pwszProviderName,    eProviderType,
                                  pwszProviderVersion, ProviderVersionId};
            return AddProvider("RegisterProvider", record);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    STDMETHODIMP UnregisterProvider(VSS_ID ProviderId) override
    {
        if (!pal::ProcessAccountIsAdministrator())
            return E_ACCESSDENIED;
        return RemoveProvider("UnregisterProvider", ProviderId);
    }

    STDMETHODIMP QueryProviders(IVssEnumObject** ppEnum) override
    {
        if (!pal::ProcessAccountIsAdministrator())
            return E_ACCESSDENIED;
        if (!ppEnum)
            return E_INVALIDARG;
        *ppEnum = nullptr;
        auto records = std::make_shared<std::vector<ProviderRecord>>();
        HRESULT hr = ReadProviders("QueryProviders", records.get());
        if (FAILED(hr))
            return hr;
        return CreateProviderEnum(std::move(records), ppEnum);
    }

    // No shadow copy is ever being created by this coordinator.
    STDMETHODIMP AbortAllSnapshotsInProgress() override
    {
        return pal::ProcessAccountIsAdministrator() ? S_OK : E_ACCESSDENIED;
    }
};

class CCoordinatorClassFactory final : public CComClassFactoryRoot
{
public:
    STDMETHODIMP CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (pUnkOuter)
            return CLASS_E_NOAGGREGATION;
        // The coordinator runs in its own service: its objects do not keep this process alive.
        return CreateObject<CComObjectNoLock<CCoordinator>>(riid, ppv);
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }

    static HRESULT Create(IClassFactory** ppFactory)
    {
        *ppFactory = new (std::nothrow) CCoordinatorClassFactory();
        return *ppFactory ? S_OK : E_OUTOFMEMORY;
    }

private:
    CCoordinatorClassFactory() = default;
    ~CCoordinatorClassFactory() override = default;
};

} // namespace

} // namespace detail

HRESULT CVssCoordinator::Start()
{
    if (m_dwCookie)
        return S_FALSE;
    IClassFactory* pFactory = nullptr;
    HRESULT hr = detail::CCoordinatorClassFactory::Create(&pFactory);
    if (FAILED(hr))
        return hr;
    hr = CoRegisterClassObject(CLSID_VSSCoordinator, pFactory, CLSCTX_LOCAL_SERVER,
                               REGCLS_MULTIPLEUSE, &m_dwCookie);
    pFactory->Release();
    if (FAILED(hr))
        m_dwCookie = 0;
    return hr;
}

void CVssCoordinator::Stop()
{
    if (!m_dwCookie)
        return;
    CoRevokeClassObject(m_dwCookie);
    m_dwCookie = 0;
}

} // namespace vsssim
