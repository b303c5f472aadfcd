// The service's HyperVSupport object: the host's Hyper-V role as the service sees it.
#include "model.h"
#include "objects.h"
#include "store/tessera.h"

namespace storagesim::detail {

namespace {

class CHyperVSupportBase : public CComObjectRootEx<CComMultiThreadModel>,
                           public CServiceObject,
                           public IHyperVSupport,
                           public ISupportErrorInfo
{
public:
    BEGIN_COM_MAP(CHyperVSupportBase)
    COM_INTERFACE_ENTRY(IHyperVSupport)
    COM_INTERFACE_ENTRY(ISupportErrorInfo)
    END_COM_MAP()
};

class CHyperVSupport : public CHyperVSupportBase
{
public:
    static constexpr const WCHAR* kSource = kHyperVSupportSource;

    HRESULT FinalConstruct()
    {
        Track();
        return S_OK;
    }
    void FinalRelease() { Untrack(); }
    HRESULT ComMapQueryInterface(REFIID iid, void** ppv)
    {
        if (Disconnected() && ppv && !IsEqualIID(iid, IID_IUnknown)) {
            *ppv = nullptr;
            return CO_E_OBJNOTCONNECTED;
        }
        return CHyperVSupportBase::ComMapQueryInterface(iid, ppv);
    }

    STDMETHODIMP IsHyperVInstalled(BOOLEAN* pfInstalled) override
    {
        return Answer("IsHyperVInstalled", pfInstalled, &CHostSettings::fHyperVInstalled);
    }
    STDMETHODIMP IsHyperVRoleEnabled(BOOLEAN* pfEnabled) override
    {
        return Answer("IsHyperVRoleEnabled", pfEnabled, &CHostSettings::fHyperVRoleEnabled);
    }
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override
    {
        return IsEqualIID(riid, IID_IHyperVSupport) ? S_OK : S_FALSE;
    }

private:
    HRESULT Answer(const char* method, BOOLEAN* pf, bool CHostSettings::*pSetting)
    {
        CServiceCall call(this, method, IID_IHyperVSupport, kSource, method);
        if (HRESULT hr = call.Enter(); hr != S_OK)
            return hr;
        if (!pf)
            return call.Leave(E_POINTER, "The result is required");
        CHostSettings settings;
        HRESULT hr = ReadHostSettings(&settings);
        if (SUCCEEDED(hr))
            *pf = (settings.*pSetting) ? 1 : 0;
        return call.Leave(hr, "The service cannot read the host's settings");
    }
};

} // namespace

HRESULT CreateHyperVSupportClassObject(IClassFactory** ppFactory)
{
    return CServiceClassFactory<CHyperVSupport>::Create(ppFactory);
}

} // namespace storagesim::detail
