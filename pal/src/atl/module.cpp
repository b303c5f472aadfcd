// The COM server module and the module lock count of the object helpers.
#include "pal/atlcom.h"
#include "pal/errhandlingapi.h"

namespace {
// The lock count of a process that has no module.
LONG volatile g_lModuleLocks = 0;
} // namespace

CAtlModule* _pAtlModule = nullptr;

LONG WINAPI AtlModuleLock()
{
    CAtlModule* pModule = _pAtlModule;
    return pModule ? pModule->Lock() : InterlockedIncrement(&g_lModuleLocks);
}

LONG WINAPI AtlModuleUnlock()
{
    CAtlModule* pModule = _pAtlModule;
    return pModule ? pModule->Unlock() : InterlockedDecrement(&g_lModuleLocks);
}

LONG WINAPI AtlModuleGetLockCount()
{
    CAtlModule* pModule = _pAtlModule;
    return pModule ? pModule->GetLockCount() : ReadNoFence(&g_lModuleLocks);
}

// ---- Object map entries ----

HRESULT WINAPI _ATL_OBJMAP_ENTRY::RegisterClassObject(DWORD dwClsContext, DWORD dwFlags)
{
    if (!pfnGetClassObject || dwRegister != 0)
        return S_OK;
    IUnknown* pUnk = nullptr;
    HRESULT hr = pfnGetClassObject(reinterpret_cast<void*>(pfnCreateInstance), IID_IUnknown,
                                   reinterpret_cast<LPVOID*>(&pUnk));
    if (FAILED(hr))
        return hr;
    DWORD dwCookie = 0;
    hr = CoRegisterClassObject(*pclsid, pUnk, dwClsContext, dwFlags, &dwCookie);
    pUnk->Release();
    if (SUCCEEDED(hr))
        dwRegister = dwCookie;
    return hr;
}

HRESULT WINAPI _ATL_OBJMAP_ENTRY::RevokeClassObject()
{
    if (dwRegister == 0)
        return S_OK;
    HRESULT hr = CoRevokeClassObject(dwRegister);
    if (SUCCEEDED(hr))
        dwRegister = 0;
    return hr;
}

// ---- Modules ----

CAtlModule::CAtlModule() noexcept
{
    _pAtlModule = this;
}

CAtlModule::~CAtlModule()
{
    if (_pAtlModule == this)
        _pAtlModule = nullptr;
}

LONG CAtlModule::Lock()
{
    return InterlockedIncrement(&m_nLockCnt);
}

LONG CAtlModule::Unlock()
{
    return InterlockedDecrement(&m_nLockCnt);
}

LONG CAtlModule::GetLockCount()
{
    return ReadNoFence(&m_nLockCnt);
}

CComModule::~CComModule()
{
    Term();
}

HRESULT CComModule::Init(_ATL_OBJMAP_ENTRY* p, HINSTANCE h, const GUID* plibid)
{
    if (!m_fInitialized) {
        if (!InitializeCriticalSectionAndSpinCount(&m_csObjMap, 0))
            return HRESULT_FROM_WIN32(GetLastError());
        m_fInitialized = true;
    }
    m_pObjMap = p;
    m_hInst = m_hInstResource = h;
    if (plibid)
        m_libid = *plibid;
    return S_OK;
}

void CComModule::Term()
{
    if (!m_fInitialized)
        return;
    EnterCriticalSection(&m_csObjMap);
    for (_ATL_OBJMAP_ENTRY* pEntry = m_pObjMap; pEntry && pEntry->pclsid; ++pEntry) {
        if (pEntry->pCF)
            pEntry->pCF->Release();
        pEntry->pCF = nullptr;
    }
    m_pObjMap = nullptr;
    LeaveCriticalSection(&m_csObjMap);
    DeleteCriticalSection(&m_csObjMap);
    m_fInitialized = false;
}

HRESULT CComModule::RegisterClassObjects(DWORD dwClsContext, DWORD dwFlags)
{
    if (!m_fInitialized)
        return S_OK;
    HRESULT hr = S_OK;
    EnterCriticalSection(&m_csObjMap);
    for (_ATL_OBJMAP_ENTRY* pEntry = m_pObjMap; pEntry && pEntry->pclsid && SUCCEEDED(hr); ++pEntry)
        hr = pEntry->RegisterClassObject(dwClsContext, dwFlags);
    if (FAILED(hr)) {
        for (_ATL_OBJMAP_ENTRY* pEntry = m_pObjMap; pEntry->pclsid; ++pEntry)
            pEntry->RevokeClassObject();
    }
    LeaveCriticalSection(&m_csObjMap);
    return hr;
}

HRESULT CComModule::RevokeClassObjects()
{
    if (!m_fInitialized)
        return S_OK;
    HRESULT hr = S_OK;
    EnterCriticalSection(&m_csObjMap);
    for (_ATL_OBJMAP_ENTRY* pEntry = m_pObjMap; pEntry && pEntry->pclsid && SUCCEEDED(hr); ++pEntry)
        hr = pEntry->RevokeClassObject();
    LeaveCriticalSection(&m_csObjMap);
    return hr;
}
