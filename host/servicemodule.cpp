// The module's life and its service face: initialisation, the dispatcher, the service's main
// function, the control handler and the status reports.
#include "host/servicemodule.h"

#include "diag/trace.h"
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/objbase.h"
#include "pal/synchapi.h"
#include "pal/winbase.h"

#include <new>

CServiceModule _Module;

namespace {

LPCWSTR StateName(DWORD dwState)
{
    switch (dwState) {
    case SERVICE_STOPPED:
        return W("SERVICE_STOPPED");
    case SERVICE_START_PENDING:
        return W("SERVICE_START_PENDING");
    case SERVICE_STOP_PENDING:
        return W("SERVICE_STOP_PENDING");
    case SERVICE_RUNNING:
        return W("SERVICE_RUNNING");
    case SERVICE_CONTINUE_PENDING:
        return W("SERVICE_CONTINUE_PENDING");
    case SERVICE_PAUSE_PENDING:
        return W("SERVICE_PAUSE_PENDING");
    case SERVICE_PAUSED:
        return W("SERVICE_PAUSED");
    default:
        return W("???");
    }
}

void CopyName(WCHAR (&szTarget)[MAX_PATH], LPCWSTR pszSource)
{
    lstrcpynW(szTarget, pszSource ? pszSource : W(""), MAX_PATH);
}

} // namespace

CServiceModule::CServiceModule()
    : m_status{}, m_szServiceName{}, m_szServiceDisplay{}, m_szServiceDescp{}, m_szAppId{},
      m_hServiceStatus(nullptr), m_dwThreadID(0), m_dwStartEventId(0), m_dwStopEventId(0),
      m_fService(FALSE), m_fAutoShutdown(FALSE), m_fSystemShutdown(FALSE),
      m_hEventShutdown(nullptr), m_lShutdownInProgress(0)
{}

CServiceModule::~CServiceModule()
{
    m_pEvent.reset();
    if (m_hEventShutdown)
        CloseHandle(m_hEventShutdown);
}

HRESULT CServiceModule::Init(LPCWSTR pszServiceName, DWORD dwStartEventId, DWORD dwStopEventId,
                             _ATL_OBJMAP_ENTRY* pObjMap, HINSTANCE hInstance, LPCWSTR pszAppId,
                             BOOL fService, BOOL fAutoShutdown, const GUID* plibid)
{
    CTraceScope scope(W("CServiceModule::Init"));
    m_fService = fService;
    m_fAutoShutdown = fAutoShutdown;
    m_dwStartEventId = dwStartEventId;
    m_dwStopEventId = dwStopEventId;
    m_fSystemShutdown = FALSE;
    m_dwThreadID = 0;
    m_lShutdownInProgress = 0;

    // A failed allocation is reported once COM and the module are up, as the other failures.
    m_pEvent.reset(new (std::nothrow) CEventLog());

    HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("CoInitializeEx FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    hr = CComModule::Init(pObjMap, hInstance, plibid);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("CComModule::Init FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    if (!m_pEvent) {
        TRACE(TRACE_LEVEL_ERROR, W("new CEventLog FAILED\n"));
        return E_OUTOFMEMORY;
    }
    hr = m_pEvent->Initialize(pszServiceName);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pEvent->Initialize FAILED [hr=0x%08x]\n"), hr);
        m_pEvent.reset();
        return hr;
    }
    m_hEventShutdown = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (!m_hEventShutdown) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("CreateEvent FAILED [dwError=0x%08x]\n"), dwError);
        return HRESULT_FROM_WIN32(dwError);
    }

    CopyName(m_szAppId, pszAppId);
    CopyName(m_szServiceName, pszServiceName);
    CopyName(m_szServiceDisplay, W("Verdane VSS Hardware Provider"));
    CopyName(m_szServiceDescp, W("VSS Hardware Provider for Verdane LUNs"));
    TRACE(TRACE_LEVEL_INFO, W("m_szAppId=%s\n"), m_szAppId);
    TRACE(TRACE_LEVEL_INFO, W("m_szServiceName=%s\n"), m_szServiceName);
    TRACE(TRACE_LEVEL_INFO, W("m_szServiceDisplay=%s\n"), m_szServiceDisplay);
    TRACE(TRACE_LEVEL_INFO, W("m_szServiceDescp=%s\n"), m_szServiceDescp);

    m_hServiceStatus = nullptr;
    m_status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    m_status.dwCurrentState = SERVICE_STOPPED;
    m_status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    m_status.dwWin32ExitCode = 0;
    m_status.dwServiceSpecificExitCode = 0;
    m_status.dwCheckPoint = 0;
    m_status.dwWaitHint = 0;
    return S_OK;
}

void CServiceModule::Term()
{
    CComModule::Term();
    CoUninitialize();
}

HRESULT CServiceModule::Start()
{
    CTraceScope scope(W("CServiceModule::Start"));
    TRACE(TRACE_LEVEL_INFO, W("m_fService=%d\n"), m_fService);
    if (!m_fService)
        return Run();
    SERVICE_TABLE_ENTRYW serviceTable[] = {{m_szServiceName, _ServiceMain}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherW(serviceTable)) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("StartServiceCtrlDispatcher FAILED [dwError=0x%08x]\n"),
              dwError);
        return HRESULT_FROM_WIN32(dwError);
    }
    return S_OK;
}

void CServiceModule::ServiceMain(DWORD dwArgc, LPWSTR* lpszArgv)
{
    UNREFERENCED_PARAMETER(dwArgc);
    UNREFERENCED_PARAMETER(lpszArgv);
    CTraceScope scope(W("CServiceModule::ServiceMain"));
    m_status.dwCurrentState = SERVICE_START_PENDING;
    m_hServiceStatus = RegisterServiceCtrlHandlerW(m_szServiceName, _Handler);
    if (!m_hServiceStatus) {
        TRACE(TRACE_LEVEL_ERROR, W("RegisterServiceCtrlHandler FAILED [dwError=0x%08x]\n"),
              GetLastError());
        return;
    }
    SetServiceStatus(SERVICE_START_PENDING);
    m_status.dwWin32ExitCode = S_OK;
    m_status.dwCheckPoint = 0;
    m_status.dwWaitHint = 0;

    // Whatever Run answers, the service stops with exit code 0.
    Run();

    SetServiceStatus(SERVICE_STOPPED);
    TRACE(TRACE_LEVEL_INFO, W("Service stopped"));
    if (m_pEvent)
        m_pEvent->Log(m_dwStopEventId, 0);
}

void CServiceModule::Handler(DWORD dwOpcode)
{
    switch (dwOpcode) {
    case SERVICE_CONTROL_STOP:
        TRACE(TRACE_LEVEL_INFO, W("**** Received SERVICE_CONTROL_STOP from SCM\n"));
        Shutdown(FALSE);
        break;
    case SERVICE_CONTROL_PAUSE:
        TRACE(TRACE_LEVEL_INFO, W("**** Received SERVICE_CONTROL_PAUSE from SCM\n"));
        break;
    case SERVICE_CONTROL_CONTINUE:
        TRACE(TRACE_LEVEL_INFO, W("**** Received SERVICE_CONTROL_CONTINUE from SCM\n"));
        break;
    case SERVICE_CONTROL_INTERROGATE:
        TRACE(TRACE_LEVEL_INFO, W("**** Received SERVICE_CONTROL_INTERROGATE from SCM\n"));
        SetServiceStatus(0);
        break;
    case SERVICE_CONTROL_SHUTDOWN:
        TRACE(TRACE_LEVEL_INFO, W("**** Received SERVICE_CONTROL_SHUTDOWN from SCM\n"));
        Shutdown(TRUE);
        break;
    default:
        break;
    }
}

void CServiceModule::SetServiceStatus(DWORD dwState)
{
    if (dwState == 0) {
        // Interrogation: the current state again, as a settled one.
        dwState = m_status.dwCurrentState;
        m_status.dwWaitHint = 0;
        m_status.dwCheckPoint = 0;
    } else if (dwState == SERVICE_STOP_PENDING) {
        m_status.dwWaitHint = 5000;
        m_status.dwCheckPoint++;
    } else {
        m_status.dwWaitHint = 0;
        m_status.dwCheckPoint = 0;
    }
    m_status.dwCurrentState = dwState;
    TRACE(TRACE_LEVEL_INFO, W("SetServiceStatus with state=%s, hint=%d, checkpoint=%d\n"),
          StateName(dwState), m_status.dwWaitHint, m_status.dwCheckPoint);
    ::SetServiceStatus(m_hServiceStatus, &m_status);
}

void WINAPI CServiceModule::_ServiceMain(DWORD dwArgc, LPWSTR* lpszArgv)
{
    _Module.ServiceMain(dwArgc, lpszArgv);
}

void WINAPI CServiceModule::_Handler(DWORD dwOpcode)
{
    _Module.Handler(dwOpcode);
}
