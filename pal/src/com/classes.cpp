// The process's class table: class objects registered by the code of this process, the runtime's
// own classes, and the activation that finds them.
#include "pal/iaccess.h"
#include "pal/objbase.h"
#include "pal/palcontrol.h"
#include "pal/src/base/internal.h"
#include "pal/src/com/rpc/activation.h"
#include "pal/src/com/runtime.h"

#include <mutex>
#include <new>
#include <vector>

namespace {

struct CRegistration
{
    DWORD m_dwCookie;
    CLSID m_clsid;
    IUnknown* m_pUnk; // one reference, held until revoked
    DWORD m_dwContext;
    DWORD m_dwFlags;
    bool m_fSuspended; // REGCLS_SUSPENDED and not yet resumed
    bool m_fUsed;      // a REGCLS_SINGLEUSE registration that has served its request
    // Stands for the server of another process, so this process's suspension leaves it alone.
    bool m_fOtherProcess = false;
};

struct CClassTable
{
    std::mutex m_lock;
    std::vector<CRegistration> m_registrations;
    DWORD m_dwNextCookie = 1;
    bool m_fSuspended = false;
    ULONG m_ulServerRefs = 0;
};

CClassTable& Table()
{
    static CClassTable* pTable = new CClassTable(); // never destroyed: threads may outlive exit
    return *pTable;
}

constexpr DWORD kKnownContexts =
    CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;

// The in-process contexts a registration serves: its own, and for a multiple-use local
// server also in-process requests (COM registers it as an in-process server as well).
DWORD InprocContexts(const CRegistration& reg)
{
    DWORD dw = reg.m_dwContext & CLSCTX_INPROC;
    if ((reg.m_dwContext & CLSCTX_LOCAL_SERVER) && (reg.m_dwFlags & 0x3) == REGCLS_MULTIPLEUSE)
        dw |= CLSCTX_INPROC_SERVER;
    return dw;
}

// The class object of one of the runtime's own classes: the system serves them from its
// in-process server, so they are always there. It lives as long as the process.
class CBuiltInClassObject final : public IClassFactory
{
public:
    using Creator = HRESULT (*)(REFIID riid, void** ppv);
    explicit constexpr CBuiltInClassObject(Creator pfnCreate) : m_pfnCreate(pfnCreate) {}

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory)) {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        *ppv = static_cast<IClassFactory*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        return pUnkOuter ? CLASS_E_NOAGGREGATION : m_pfnCreate(riid, ppv);
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }

private:
    Creator m_pfnCreate;
};

struct CBuiltInClass
{
    const CLSID* pclsid;
    CBuiltInClassObject* pClassObject;
};

CBuiltInClassObject g_accessControlClass(&pal::detail::CreateAccessControlObject);
const CBuiltInClass kBuiltInClasses[] = {
    {&CLSID_DCOMAccessControl, &g_accessControlClass},
};

IUnknown* FindBuiltInClass(REFCLSID rclsid)
{
    for (const CBuiltInClass& builtIn : kBuiltInClasses)
        if (IsEqualCLSID(*builtIn.pclsid, rclsid))
            return builtIn.pClassObject;
    return nullptr;
}

void GuidText(REFCLSID rclsid, WCHAR (&sz)[40])
{
    if (StringFromGUID2(rclsid, sz, 40) == 0)
        sz[0] = 0;
}

// Finds the class object and adds a reference for the caller, under the table's lock.
HRESULT FindClassObject(REFCLSID rclsid, DWORD dwClsContext, IUnknown** ppUnk)
{
    CClassTable& table = Table();
    std::lock_guard lock(table.m_lock);
    CRegistration* pLocal = nullptr;
    bool fLocalStopping = false;
    for (CRegistration& reg : table.m_registrations) {
        if (!IsEqualCLSID(reg.m_clsid, rclsid) || reg.m_fUsed)
            continue;
        if (dwClsContext & InprocContexts(reg)) {
            if ((reg.m_dwFlags & 0x3) == REGCLS_SINGLEUSE)
                reg.m_fUsed = true;
            reg.m_pUnk->AddRef();
            *ppUnk = reg.m_pUnk;
            return S_OK;
        }
        if ((dwClsContext & (CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)) &&
            (reg.m_dwContext & CLSCTX_LOCAL_SERVER)) {
            if ((table.m_fSuspended && !reg.m_fOtherProcess) || reg.m_fSuspended)
                fLocalStopping = true;
            else if (!pLocal)
                pLocal = &reg;
        }
    }
    // The runtime's own in-process server comes before a local server, as the registry's
    // InprocServer32 does.
    if (dwClsContext & CLSCTX_INPROC_SERVER) {
        if (IUnknown* pBuiltIn = FindBuiltInClass(rclsid)) {
            pBuiltIn->AddRef();
            *ppUnk = pBuiltIn;
            return S_OK;
        }
    }
    if (pLocal) {
        if ((pLocal->m_dwFlags & 0x3) == REGCLS_SINGLEUSE)
            pLocal->m_fUsed = true;
        pLocal->m_pUnk->AddRef();
        *ppUnk = pLocal->m_pUnk;
        return S_OK;
    }
    return fLocalStopping ? CO_E_SERVER_STOPPING : REGDB_E_CLASSNOTREG;
}

// What both activation calls check before they use a class object: an injected fault, the
// class context, the apartment, then the registration itself.
HRESULT ActivateClassObject(const char* pszApi, REFCLSID rclsid, DWORD dwClsContext,
                            IUnknown** ppUnk)
{
    WCHAR szClsid[40];
    GuidText(rclsid, szClsid);
    if (HRESULT hr = pal::detail::InjectedComFault(pszApi, szClsid); FAILED(hr))
        return hr;
    if ((dwClsContext & kKnownContexts) == 0)
        return E_INVALIDARG;
    if (!pal::detail::ComInitializedOnThread())
        return CO_E_NOTINITIALIZED;
    return FindClassObject(rclsid, dwClsContext, ppUnk);
}

} // namespace

HRESULT WINAPI CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pServerInfo,
                                REFIID riid, LPVOID* ppv)
{
    UNREFERENCED_PARAMETER(pServerInfo);
    if (!ppv)
        return E_INVALIDARG;
    *ppv = nullptr;
    IUnknown* pUnk = nullptr;
    HRESULT hr = ActivateClassObject("CoGetClassObject", rclsid, dwClsContext, &pUnk);
    if (hr == REGDB_E_CLASSNOTREG && (dwClsContext & CLSCTX_LOCAL_SERVER))
        return pal::detail::rpc::GetRemoteClassObject(rclsid, riid, ppv);
    if (FAILED(hr))
        return hr;
    hr = pUnk->QueryInterface(riid, ppv);
    pUnk->Release();
    if (FAILED(hr))
        *ppv = nullptr;
    return hr;
}

HRESULT WINAPI CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext,
                                REFIID riid, LPVOID* ppv)
{
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    IUnknown* pUnk = nullptr;
    IClassFactory* pFactory = nullptr;
    HRESULT hr = ActivateClassObject("CoCreateInstance", rclsid, dwClsContext, &pUnk);
    if (hr == REGDB_E_CLASSNOTREG && (dwClsContext & CLSCTX_LOCAL_SERVER)) {
        // Another process of the machine may serve it.
        hr = pal::detail::rpc::GetRemoteClassObject(rclsid, IID_IClassFactory,
                                                    reinterpret_cast<void**>(&pFactory));
        if (FAILED(hr))
            return hr;
    } else {
        if (FAILED(hr))
            return hr;
        hr = pUnk->QueryInterface(IID_IClassFactory, reinterpret_cast<void**>(&pFactory));
        pUnk->Release();
        if (FAILED(hr))
            return hr;
    }
    hr = pFactory->CreateInstance(pUnkOuter, riid, ppv);
    pFactory->Release();
    if (FAILED(hr))
        *ppv = nullptr;
    return hr;
}

HRESULT WINAPI CoRegisterClassObject(REFCLSID rclsid, LPUNKNOWN pUnk, DWORD dwClsContext,
                                     DWORD flags, LPDWORD lpdwRegister)
{
    if (!lpdwRegister)
        return E_INVALIDARG;
    *lpdwRegister = 0;
    WCHAR szClsid[40];
    GuidText(rclsid, szClsid);
    if (HRESULT hr = pal::detail::InjectedComFault("CoRegisterClassObject", szClsid); FAILED(hr))
        return hr;
    if (!pUnk || (dwClsContext & kKnownContexts) == 0 || (flags & 0x3) == 0x3)
        return E_INVALIDARG;
    if (!pal::detail::ComInitializedOnThread())
        return CO_E_NOTINITIALIZED;
    if (dwClsContext & CLSCTX_LOCAL_SERVER) {
        // Other processes of the machine find the class through its published name.
        if (HRESULT hr = pal::detail::rpc::PublishClass(rclsid); FAILED(hr))
            return hr;
    }
    CClassTable& table = Table();
    std::lock_guard lock(table.m_lock);
    try {
        table.m_registrations.push_back(CRegistration{table.m_dwNextCookie, rclsid, pUnk,
                                                      dwClsContext, flags,
                                                      (flags & REGCLS_SUSPENDED) != 0, false});
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    pUnk->AddRef();
    *lpdwRegister = table.m_dwNextCookie++;
    return S_OK;
}

HRESULT WINAPI CoRevokeClassObject(DWORD dwRegister)
{
    IUnknown* pUnk = nullptr;
    CLSID clsid = GUID_NULL;
    bool fLastLocal = false;
    {
        CClassTable& table = Table();
        std::lock_guard lock(table.m_lock);
        for (auto it = table.m_registrations.begin(); it != table.m_registrations.end(); ++it) {
            if (it->m_dwCookie == dwRegister) {
                pUnk = it->m_pUnk;
                clsid = it->m_clsid;
                fLastLocal = (it->m_dwContext & CLSCTX_LOCAL_SERVER) != 0;
                table.m_registrations.erase(it);
                break;
            }
        }
        for (const CRegistration& reg : table.m_registrations)
            if (IsEqualCLSID(reg.m_clsid, clsid) && (reg.m_dwContext & CLSCTX_LOCAL_SERVER))
                fLastLocal = false;
    }
    if (!pUnk)
        return CO_E_OBJNOTREG;
    if (fLastLocal)
        pal::detail::rpc::UnpublishClass(clsid);
    // Outside the lock: the last release may run a destructor that calls back into COM.
    pUnk->Release();
    return S_OK;
}

HRESULT WINAPI CoSuspendClassObjects()
{
    CClassTable& table = Table();
    std::lock_guard lock(table.m_lock);
    table.m_fSuspended = true;
    return S_OK;
}

HRESULT WINAPI CoResumeClassObjects()
{
    CClassTable& table = Table();
    std::lock_guard lock(table.m_lock);
    table.m_fSuspended = false;
    for (CRegistration& reg : table.m_registrations)
        reg.m_fSuspended = false;
    return S_OK;
}

ULONG WINAPI CoAddRefServerProcess()
{
    CClassTable& table = Table();
    std::lock_guard lock(table.m_lock);
    return ++table.m_ulServerRefs;
}

ULONG WINAPI CoReleaseServerProcess()
{
    CClassTable& table = Table();
    std::lock_guard lock(table.m_lock);
    if (table.m_ulServerRefs > 0 && --table.m_ulServerRefs == 0)
        table.m_fSuspended = true;
    return table.m_ulServerRefs;
}

bool pal::ServeAsAnotherProcess(DWORD dwCookie)
{
    CClassTable& table = Table();
    std::lock_guard lock(table.m_lock);
    for (CRegistration& reg : table.m_registrations) {
        if (reg.m_dwCookie == dwCookie) {
            reg.m_fOtherProcess = true;
            return true;
        }
    }
    return false;
}

HRESULT pal::detail::FindLocalServerClassObject(REFCLSID rclsid, IUnknown** ppUnk)
{
    return FindClassObject(rclsid, CLSCTX_LOCAL_SERVER, ppUnk);
}
