// The COM server module and the module lock count of the object helpers.
#include "pal/atlcom.h"
#include "pal/errhandlingapi.h"
#include "pal/libloaderapi.h"
#include "pal/oleauto.h"
#include "pal/winbase.h"

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

// ---- Registration ----

HRESULT CAtlModule::UpdateRegistryFromResource(UINT nResID, BOOL bRegister)
{
    UNREFERENCED_PARAMETER(nResID);
    UNREFERENCED_PARAMETER(bRegister);
    return E_NOTIMPL;
}

HRESULT CComModule::RegisterServer(BOOL bRegTypeLib, const CLSID* pCLSID)
{
    HRESULT hr = S_OK;
    for (_ATL_OBJMAP_ENTRY* pEntry = m_pObjMap; pEntry && pEntry->pclsid && SUCCEEDED(hr);
         ++pEntry) {
        if (!pCLSID || IsEqualCLSID(*pCLSID, *pEntry->pclsid))
            hr = pEntry->pfnUpdateRegistry(TRUE);
    }
    if (SUCCEEDED(hr) && bRegTypeLib)
        hr = RegisterTypeLib();
    return hr;
}

HRESULT CComModule::UnregisterServer(BOOL bUnRegTypeLib, const CLSID* pCLSID)
{
    HRESULT hrFirst = S_OK;
    for (_ATL_OBJMAP_ENTRY* pEntry = m_pObjMap; pEntry && pEntry->pclsid; ++pEntry) {
        HRESULT hr = !pCLSID || IsEqualCLSID(*pCLSID, *pEntry->pclsid)
                         ? pEntry->pfnUpdateRegistry(FALSE)
                         : S_OK;
        if (SUCCEEDED(hrFirst))
            hrFirst = hr;
    }
    HRESULT hr = bUnRegTypeLib ? UnRegisterTypeLib() : S_OK;
    return FAILED(hrFirst) ? hrFirst : hr;
}

namespace {

// The module file's type library; szPath receives the path it was loaded from and szDir the
// module's directory.
HRESULT LoadModuleTypeLib(HINSTANCE hInst, LPCWSTR lpszIndex, WCHAR (&szPath)[MAX_PATH + 16],
                          WCHAR (&szDir)[MAX_PATH], ITypeLib** pptlib)
{
    DWORD cch = GetModuleFileNameW(hInst, szPath, MAX_PATH);
    if (cch == 0)
        return HRESULT_FROM_WIN32(GetLastError());
    if (cch == MAX_PATH)
        return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
    // The directory keeps its separator, as ATL's does.
    DWORD cchDir = cch;
    while (cchDir > 0 && szPath[cchDir - 1] != '\\' && szPath[cchDir - 1] != '/')
        --cchDir;
    lstrcpynW(szDir, szPath, static_cast<int>(cchDir + 1));
    if (lpszIndex) {
        if (lstrlenW(lpszIndex) >= 16)
            return E_INVALIDARG;
        lstrcpynW(szPath + cch, lpszIndex, 16);
    }
    return LoadTypeLib(szPath, pptlib);
}

} // namespace

HRESULT CComModule::RegisterTypeLib(LPCWSTR lpszIndex)
{
    WCHAR szPath[MAX_PATH + 16];
    WCHAR szDir[MAX_PATH];
    CComPtr<ITypeLib> pTypeLib;
    HRESULT hr = LoadModuleTypeLib(m_hInst, lpszIndex, szPath, szDir, &pTypeLib);
    return FAILED(hr) ? hr : ::RegisterTypeLib(pTypeLib, szPath, szDir);
}

HRESULT CComModule::UnRegisterTypeLib(LPCWSTR lpszIndex)
{
    WCHAR szPath[MAX_PATH + 16];
    WCHAR szDir[MAX_PATH];
    CComPtr<ITypeLib> pTypeLib;
    TLIBATTR* pAttr = nullptr;
    HRESULT hr = LoadModuleTypeLib(m_hInst, lpszIndex, szPath, szDir, &pTypeLib);
    if (SUCCEEDED(hr))
        hr = pTypeLib->GetLibAttr(&pAttr);
    if (FAILED(hr))
        return hr;
    hr = ::UnRegisterTypeLib(pAttr->guid, pAttr->wMajorVerNum, pAttr->wMinorVerNum, pAttr->lcid,
                             pAttr->syskind);
    pTypeLib->ReleaseTLibAttr(pAttr);
    return hr;
}
