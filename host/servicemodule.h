// CServiceModule: the process's one module object. It is the COM server module (object map,
// lock count, class object registration) and the Windows service (service table, control
// handler, service status) at once. Started without switches, the process hands its main thread
// to the service control dispatcher and the service thread runs the server until it is told to
// stop; started as an ordinary process, the same run loop executes in the main thread.
//
// Stopping comes from two directions: the control handler (a stop or a system shutdown) and
// the release of the last COM lock when auto-shutdown is on. Either starts Shutdown, which
// proceeds once; the run loop learns of it only through the shutdown event, then drains for up
// to three (after a system shutdown: one) 10-second waits while clients still hold the module.
#pragma once

#include "host/eventlog.h"
#include "pal/atlbase.h"
#include "pal/atlcom.h"
#include "pal/winsvc.h"

#include <memory>

// The provider's event ids for the service's start and stop reports.
#define SERVICE_START_EVENT_ID 0x40041008
#define SERVICE_STOP_EVENT_ID 0x40041009

class CServiceModule : public CComModule
{
public:
    CServiceModule();
    // Deletes the event log writer (deregistering its source) and closes the shutdown event.
    ~CServiceModule();
    CServiceModule(const CServiceModule&) = delete;
    CServiceModule& operator=(const CServiceModule&) = delete;

    // Called once by the process entry: COM, the COM server module, the event log writer for
    // the source `pszServiceName`, the shutdown event and the service's names.
    HRESULT Init(LPCWSTR pszServiceName, DWORD dwStartEventId, DWORD dwStopEventId,
                 _ATL_OBJMAP_ENTRY* pObjMap, HINSTANCE hInstance, LPCWSTR pszAppId, BOOL fService,
                 BOOL fAutoShutdown, const GUID* plibid);
    // Runs the module as a service (through the service control dispatcher) or as a process;
    // returns when it has stopped.
    HRESULT Start();
    // The service's main function, entered on the dispatcher's thread; the arguments are not
    // used. The service always stops with exit code 0.
    void ServiceMain(DWORD dwArgc, LPWSTR* lpszArgv);
    // The control handler.
    void Handler(DWORD dwOpcode);
    // Reports `dwState` (0: the current state again) to the service control manager.
    void SetServiceStatus(DWORD dwState);
    // Security, class object registration, the wait for the shutdown event and the drain.
    HRESULT Run();
    // Starts the orderly stop, once whoever calls it first.
    void Shutdown(BOOL fSystemShutdown);
    // The COM server module's unlock, with the auto-shutdown when the count reaches zero. It is
    // what COM objects and class factories reach when they are destroyed or unlocked.
    LONG Unlock() override;
    // The process-wide COM security: only the local system account and the Administrators
    // group may call in.
    HRESULT InitializeSecurity();
    // Terminates the COM server module, then COM; called at every process exit.
    void Term();

    // ---- Registration (registration.cpp, registrar.cpp) ----
    // Installs the server: the AppID script `nResId`, the AppID's service values and the
    // Windows service when `bService`, then the object map's classes and, when asked, the type
    // library. The service is always deleted first, so that it is re-created.
    HRESULT RegisterServer(UINT nResId, BOOL bRegTypeLib, BOOL bService, LPCWSTR pszAccount,
                           LPCWSTR pszPassword);
    // Removes everything RegisterServer installs; S_OK whatever happened.
    HRESULT UnregisterServer(UINT nResId);
    // Installs the Windows service that hosts the server, unless it exists.
    BOOL CreateService(LPCWSTR pszAccount, LPCWSTR pszPassword);
    // Asks a running service to stop and removes it; TRUE when there is none.
    BOOL DeleteService();
    // Whether a service of the module's name exists.
    BOOL IsInstalled();
    // Writes (or removes) the keys of the registry script `nResID` under HKEY_CLASSES_ROOT,
    // %MODULE% replaced by the executable's full path.
    HRESULT UpdateRegistryFromResource(UINT nResID, BOOL bRegister) override;

    SERVICE_STATUS m_status;
    WCHAR m_szServiceName[MAX_PATH];
    WCHAR m_szServiceDisplay[MAX_PATH];
    WCHAR m_szServiceDescp[MAX_PATH];
    WCHAR m_szAppId[MAX_PATH];
    SERVICE_STATUS_HANDLE m_hServiceStatus;
    DWORD m_dwThreadID;
    DWORD m_dwStartEventId;
    DWORD m_dwStopEventId;
    BOOL m_fService;
    BOOL m_fAutoShutdown;
    BOOL m_fSystemShutdown;
    HANDLE m_hEventShutdown;
    LONG volatile m_lShutdownInProgress;
    std::unique_ptr<CEventLog> m_pEvent;

private:
    // The dispatcher and the control manager call these; they forward to the global module.
    static void WINAPI _ServiceMain(DWORD dwArgc, LPWSTR* lpszArgv);
    static void WINAPI _Handler(DWORD dwOpcode);
};

// The one module of the process.
extern CServiceModule _Module;
