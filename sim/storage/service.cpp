// The service in this process: its class objects, its live objects and its creations.
#include "objects.h"

#include "model.h"
#include "simcodes.h"
#include "storagesim.h"
#include "store/tessera.h"

#include "pal/palcontrol.h"
#include "pal/synchapi.h"
#include "pal/winreg.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace storagesim {

namespace detail {

namespace {

struct CServiceState
{
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<CServiceObject*> m_objects;
    ULONG m_cCreations = 0;
    std::atomic<bool> m_fStopping{false};
};

CServiceState& ServiceState()
{
    static CServiceState* pState = new CServiceState(); // workers may outlive static destruction
    return *pState;
}

// The service's version as Windows installs it; the provider reads it at load.
HRESULT WriteProductVersion(const std::string& version)
{
    HKEY hKey = nullptr;
    LSTATUS status =
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"Software\\Halvern\\Tessera", 0, nullptr,
                        REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &hKey, nullptr);
    if (status != ERROR_SUCCESS)
        return HRESULT_FROM_WIN32(status);
    std::u16string text = pal::Utf8ToUtf16(version);
    status = RegSetValueExW(hKey, u"ProductVersion", 0, REG_SZ,
                            reinterpret_cast<const BYTE*>(text.c_str()),
                            static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
    RegCloseKey(hKey);
    return HRESULT_FROM_WIN32(status);
}

} // namespace

void CServiceObject::Track()
{
    CServiceState& s = ServiceState();
    std::lock_guard lock(s.m_lock);
    s.m_objects.push_back(this);
}

void CServiceObject::Untrack()
{
    CServiceState& s = ServiceState();
    std::lock_guard lock(s.m_lock);
    s.m_objects.erase(std::remove(s.m_objects.begin(), s.m_objects.end(), this), s.m_objects.end());
}

void DisconnectAllObjects()
{
    std::vector<IUnknown*> toRelease;
    {
        CServiceState& s = ServiceState();
        std::lock_guard lock(s.m_lock);
        for (CServiceObject* p : s.m_objects)
            p->DisconnectLocked(&toRelease);
    }
    // Outside the lock: a sink's last release may call back into the service.
    for (IUnknown* pUnk : toRelease)
        pUnk->Release();
}

void CreationStarted()
{
    CServiceState& s = ServiceState();
    std::lock_guard lock(s.m_lock);
    ++s.m_cCreations;
}

void CreationEnded()
{
    CServiceState& s = ServiceState();
    std::lock_guard lock(s.m_lock);
    --s.m_cCreations;
    s.m_changed.notify_all();
}

bool ServiceStopping()
{
    return ServiceState().m_fStopping.load();
}

} // namespace detail

ULONG LiveObjectCount()
{
    detail::CServiceState& s = detail::ServiceState();
    std::lock_guard lock(s.m_lock);
    return static_cast<ULONG>(s.m_objects.size());
}

ULONG ActiveCreationCount()
{
    detail::CServiceState& s = detail::ServiceState();
    std::lock_guard lock(s.m_lock);
    return s.m_cCreations;
}

HRESULT InstallService()
{
    detail::CHostSettings settings;
    if (HRESULT hr = detail::ReadHostSettings(&settings); FAILED(hr))
        return hr;
    return detail::WriteProductVersion(settings.version);
}

HRESULT CStorageService::Start()
{
    if (m_fRunning)
        return S_FALSE;
    detail::ServiceState().m_fStopping = false;
    detail::CHostSettings settings;
    if (HRESULT hr = detail::ReadHostSettings(&settings); FAILED(hr))
        return hr;
    if (HRESULT hr = detail::WriteProductVersion(settings.version); FAILED(hr))
        return hr;
    IClassFactory* pVss = nullptr;
    IClassFactory* pHyperV = nullptr;
    HRESULT hr = detail::CreateVssSupportClassObject(&pVss);
    if (SUCCEEDED(hr))
        hr = detail::CreateHyperVSupportClassObject(&pHyperV);
    if (SUCCEEDED(hr))
        hr = CoRegisterClassObject(CLSID_VSSSupport, pVss, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                   &m_dwVssCookie);
    if (SUCCEEDED(hr))
        hr = CoRegisterClassObject(CLSID_HyperVSupport, pHyperV, CLSCTX_LOCAL_SERVER,
                                   REGCLS_MULTIPLEUSE, &m_dwHyperVCookie);
    if (SUCCEEDED(hr)) {
        // On a real machine the storage service is a process of its own.
        pal::ServeAsAnotherProcess(m_dwVssCookie);
        pal::ServeAsAnotherProcess(m_dwHyperVCookie);
    }
    if (pVss)
        pVss->Release();
    if (pHyperV)
        pHyperV->Release();
    if (FAILED(hr)) {
        if (m_dwVssCookie)
            CoRevokeClassObject(m_dwVssCookie);
        m_dwVssCookie = 0;
        return hr;
    }
    m_fRunning = true;
    return S_OK;
}

void CStorageService::Stop()
{
    if (!m_fRunning)
        return;
    m_fRunning = false;
    CoRevokeClassObject(m_dwVssCookie);
    CoRevokeClassObject(m_dwHyperVCookie);
    m_dwVssCookie = m_dwHyperVCookie = 0;
    detail::CServiceState& s = detail::ServiceState();
    s.m_fStopping = true;
    detail::DisconnectAllObjects();
    // A creation held at its hand-off ends when its sink answers, at the latest when the
    // sink's own wait runs out.
    std::unique_lock lock(s.m_lock);
    s.m_changed.wait(lock, [&s] { return s.m_cCreations == 0; });
}

} // namespace storagesim
