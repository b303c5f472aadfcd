// Installation and removal of the server: the COM registration (AppID, provider class, type
// library) and the Windows service that hosts it. Registration runs interactively, so a
// service that cannot be installed or removed is also shown to the user.
#include "host/servicemodule.h"

#include "diag/trace.h"
#include "pal/errhandlingapi.h"
#include "pal/libloaderapi.h"
#include "pal/regkey.h"
#include "pal/winuser.h"

namespace {

// Both service control handles of an operation, closed on every exit.
class CServiceHandles
{
public:
    CServiceHandles() = default;
    CServiceHandles(const CServiceHandles&) = delete;
    CServiceHandles& operator=(const CServiceHandles&) = delete;
    ~CServiceHandles()
    {
        if (m_hService)
            CloseServiceHandle(m_hService);
        if (m_hSCM)
            CloseServiceHandle(m_hSCM);
    }

    // Opens the manager with all access; a failure is traced and shown, captioned with the
    // service's name.
    bool OpenManager(LPCWSTR pszServiceName)
    {
        m_hSCM = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        if (m_hSCM)
            return true;
        TRACE(TRACE_LEVEL_ERROR, W("OpenSCManager FAILED [dwError=0x%08x]\n"), GetLastError());
        MessageBoxW(nullptr, W("Couldn't open service manager"), pszServiceName, MB_OK);
        return false;
    }

    SC_HANDLE m_hSCM = nullptr;
    SC_HANDLE m_hService = nullptr;
};

} // namespace

BOOL CServiceModule::IsInstalled()
{
    CServiceHandles handles;
    handles.m_hSCM = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (!handles.m_hSCM)
        return FALSE;
    handles.m_hService = OpenServiceW(handles.m_hSCM, m_szServiceName, SERVICE_QUERY_CONFIG);
    return handles.m_hService != nullptr;
}

BOOL CServiceModule::CreateService(LPCWSTR pszAccount, LPCWSTR pszPassword)
{
    CTraceScope scope(W("CServiceModule::CreateService"));
    if (IsInstalled())
        return TRUE;

    CServiceHandles handles;
    if (!handles.OpenManager(m_szServiceName))
        return FALSE;

    WCHAR szFilePath[MAX_PATH + 1] = {};
    GetModuleFileNameW(nullptr, szFilePath, MAX_PATH);
    TRACE(TRACE_LEVEL_INFO, W("m_szServiceName=%s\n"), m_szServiceName);
    TRACE(TRACE_LEVEL_INFO, W("m_szServiceDisplay=%s\n"), m_szServiceDisplay);
    TRACE(TRACE_LEVEL_INFO, W("m_szServiceDescp=%s\n"), m_szServiceDescp);

    handles.m_hService =
        ::CreateServiceW(handles.m_hSCM, m_szServiceName, m_szServiceDisplay, SERVICE_ALL_ACCESS,
                         SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                         szFilePath, nullptr, nullptr, W("RPCSS\0"), pszAccount, pszPassword);
    if (!handles.m_hService) {
        TRACE(TRACE_LEVEL_ERROR, W("CreateService FAILED [dwError=0x%08x]\n"), GetLastError());
        MessageBoxW(nullptr, W("Couldn't create service"), m_szServiceName, MB_OK);
        return FALSE;
    }

    SERVICE_DESCRIPTIONW description = {m_szServiceDescp};
    if (!ChangeServiceConfig2W(handles.m_hService, SERVICE_CONFIG_DESCRIPTION, &description)) {
        TRACE(TRACE_LEVEL_ERROR, W("ChangeServiceConfig2 FAILED [dwError=0x%08x]\n"),
              GetLastError());
        return FALSE;
    }
    return TRUE;
}

BOOL CServiceModule::DeleteService()
{
    CTraceScope scope(W("CServiceModule::DeleteService"));
    if (!IsInstalled())
        return TRUE;

    CServiceHandles handles;
    if (!handles.OpenManager(m_szServiceName))
        return FALSE;
    handles.m_hService = OpenServiceW(handles.m_hSCM, m_szServiceName, SERVICE_STOP | DELETE);
    if (!handles.m_hService) {
        TRACE(TRACE_LEVEL_ERROR, W("OpenService FAILED [dwError=0x%08x]\n"), GetLastError());
        MessageBoxW(nullptr, W("Couldn't open service"), m_szServiceName, MB_OK);
        return FALSE;
    }
    // The stop is only asked for: a running service goes once it has stopped.
    SERVICE_STATUS status = {};
    ControlService(handles.m_hService, SERVICE_CONTROL_STOP, &status);
    if (!::DeleteService(handles.m_hService)) {
        TRACE(TRACE_LEVEL_ERROR, W("DeleteService FAILED [dwError=0x%08x]\n"), GetLastError());
        MessageBoxW(nullptr, W("Service could not be deleted"), m_szServiceName, MB_OK);
        return FALSE;
    }
    return TRUE;
}

HRESULT CServiceModule::RegisterServer(UINT nResId, BOOL bRegTypeLib, BOOL bService,
                                       LPCWSTR pszAccount, LPCWSTR pszPassword)
{
    CTraceScope scope(W("CServiceModule::RegisterServer"));
    // A new registration always re-creates the service.
    DeleteService();
    // A script that failed leaves the AppID key missing, which the open below reports.
    UpdateRegistryFromResource(nResId, TRUE);

    CRegKey keyAppID;
    LONG lRes = keyAppID.Open(HKEY_CLASSES_ROOT, W("AppID"), KEY_WRITE);
    if (lRes != ERROR_SUCCESS) {
        HRESULT hr = HRESULT_FROM_WIN32(lRes);
        TRACE(TRACE_LEVEL_ERROR, W("keyAppID.Open FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    CRegKey key;
    lRes = key.Open(keyAppID, m_szAppId, KEY_WRITE);
    if (lRes != ERROR_SUCCESS) {
        HRESULT hr = HRESULT_FROM_WIN32(lRes);
        TRACE(TRACE_LEVEL_ERROR, W("key.Open FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    // Without LocalService, COM starts the server from the class's LocalServer32 entry.
    key.DeleteValue(W("LocalService"));
    if (bService) {
        TRACE(TRACE_LEVEL_INFO, W("Creating regvalues for LocalService\n"));
        lRes = key.SetStringValue(W("LocalService"), m_szServiceName);
        if (lRes != ERROR_SUCCESS)
            TRACE(TRACE_LEVEL_ERROR, W("key.SetValue on LocalService FAILED [ret=0x%08x]\n"), lRes);
        TRACE(TRACE_LEVEL_INFO, W("Creating regvalues for ServiceParameters\n"));
        lRes = key.SetStringValue(W("ServiceParameters"), W("-service"));
        if (lRes != ERROR_SUCCESS)
            TRACE(TRACE_LEVEL_ERROR, W("key.SetValue on ServiceParameters FAILED [ret=0x%08x]\n"),
                  lRes);
        CreateService(pszAccount, pszPassword);
    }
    return CComModule::RegisterServer(bRegTypeLib);
}

HRESULT CServiceModule::UnregisterServer(UINT nResId)
{
    CTraceScope scope(W("CServiceModule::UnregisterServer"));
    UpdateRegistryFromResource(nResId, FALSE);
    DeleteService();
    CComModule::UnregisterServer(TRUE);
    return S_OK;
}
