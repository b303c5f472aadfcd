// The provider program's entry: configuration and tracing first, so that everything after them
// is traced, then the command line, the module, and exactly one of the program's four jobs:
// run as the service, run as an ordinary server (-exe), install (-r service | -r exe) or
// uninstall (-u). The return value is the process exit code, always passed through
// MapExitCode, so a failing process exits with VSS_E_PROVIDER_VETO or E_OUTOFMEMORY only.
#include "diag/config.h"
#include "diag/trace.h"
#include "host/cmdline.h"
#include "host/servicemodule.h"
#include "host/vssregistration.h"
#include "pal/libloaderapi.h"
#include "pal/processthreadsapi.h"
#include "pal/shellapi.h"
#include "pal/winbase.h"
#include "pal/winuser.h"
#include "provider/hwprovider.h"
#include "res/orvmsg.h"
#include "res/resource.h"

BEGIN_OBJECT_MAP(ObjectMap)
OBJECT_ENTRY(CLSID_OrvaneHardwareProvider, COrvaneHardwareProvider)
END_OBJECT_MAP()

namespace {

// {3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}
constexpr GUID LIBID_ORVPROVLib = {
    0x3BB85D3F, 0x2BA9, 0x4DC0, {0xAC, 0x81, 0x7F, 0x55, 0x52, 0x0F, 0x51, 0xE2}};

// Ends the process the same way from every exit: the configuration watcher, then the module
// and COM.
HRESULT CleanUp(HRESULT hr)
{
    CConfig::Terminate();
    _Module.Term();
    return MapExitCode(hr);
}

// The split command line and the parser's extra arguments, released at every exit.
struct CArguments
{
    CArguments() = default;
    CArguments(const CArguments&) = delete;
    CArguments& operator=(const CArguments&) = delete;
    ~CArguments()
    {
        delete[] m_ppExtra;
        if (m_argv)
            LocalFree(m_argv);
    }

    LPWSTR* m_argv = nullptr;
    LPWSTR* m_ppExtra = nullptr;
};

// The register-mode message comes from the storage service's resources when the process has
// them loaded; the program never loads them itself.
void ShowRegisterModeError()
{
    HINSTANCE hInst = GetModuleHandleW(W("TesseraRes.dll"));
    if (!hInst)
        hInst = _Module.m_hInstResource;
    WCHAR szMessage[256] = {};
    WCHAR szCaption[100] = {};
    LoadStringW(hInst, IDS_PARSE_REGISTER_MODE, szMessage, 256);
    LoadStringW(hInst, IDS_REGISTER_SERVER_CAPTION, szCaption, 100);
    MessageBoxW(nullptr, szMessage, szCaption, MB_OK);
}

} // namespace

int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE hPrevInstance, LPWSTR lpCmdLine, int nShowCmd)
{
    UNREFERENCED_PARAMETER(hPrevInstance);
    UNREFERENCED_PARAMETER(lpCmdLine);
    UNREFERENCED_PARAMETER(nShowCmd);

    CConfig::Initialize();
    InitializeTraceFromRegistry();
    if (!COrvaneHardwareProvider::InitializeClass()) {
        TRACE(TRACE_LEVEL_ERROR, W("COrvaneHardwareProvider::InitializeClass FAILED\n"));
        return CleanUp(ORVPROV_E_UNEXPECTED_ERROR);
    }

    LPWSTR pszRegister = nullptr;
    BOOL fService = FALSE;
    BOOL fExe = FALSE;
    BOOL fUnregister = FALSE;
    LPWSTR pszAccount = nullptr;
    WCHAR szNoPassword[] = W("");
    LPWSTR pszPassword = szNoPassword;
    const SWITCH_ENTRY switches[] = {
        {W("r"), TRUE, &pszRegister}, {W("service"), FALSE, &fService},
        {W("exe"), FALSE, &fExe},     {W("u"), FALSE, &fUnregister},
        {W("a"), TRUE, &pszAccount},  {W("p"), TRUE, &pszPassword},
    };
    int argc = 0;
    int cExtra = 0;
    CArguments args;
    args.m_argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (!args.m_argv ||
        !ParseArgs(argc, args.m_argv, switches, static_cast<int>(ARRAYSIZE(switches)),
                   &args.m_ppExtra, &cExtra)) {
        TRACE(TRACE_LEVEL_ERROR, W("Parsing error: invalid switches or arguments\n"));
        return CleanUp(ORVPROV_E_UNEXPECTED_ERROR);
    }

    HRESULT hr =
        _Module.Init(W("Orvhwsvc"), SERVICE_START_EVENT_ID, SERVICE_STOP_EVENT_ID, ObjectMap,
                     hInstance, W("{6AF5BA0B-5FE5-4B79-9723-14C9C3ECB16C}"), !fExe,
                     static_cast<BOOL>(CConfig::sm_dwAutoShutdown), &LIBID_ORVPROVLib);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("_Module.Init FAILED\n"));
        return CleanUp(hr);
    }

    if (fUnregister) {
        TRACE(TRACE_LEVEL_INFO, W("Unreg\n"));
        hr = _Module.UnregisterServer(IDR_ORVPROV);
        if (FAILED(hr))
            TRACE(TRACE_LEVEL_ERROR, W("UnregisterServer FAILED [hr=0x%08x]\n"), hr);
        hr = UnregisterVss();
        if (FAILED(hr))
            TRACE(TRACE_LEVEL_ERROR, W("UnregisterVss FAILED [hr=0x%08x]\n"), hr);
    } else if (!pszRegister) {
        _Module.Start();
        hr = MapExitCode(static_cast<HRESULT>(_Module.m_status.dwWin32ExitCode));
        if (FAILED(hr))
            return CleanUp(hr);
    } else if (lstrcmpiW(pszRegister, W("service")) == 0) {
        if (!pszAccount || !pszPassword) {
            WCHAR szMessage[256] = {};
            LoadStringW(_Module.m_hInstResource, IDS_PARSE_NEED_ACCOUNT, szMessage, 256);
            MessageBoxW(nullptr, szMessage, W("Register Server"), MB_OK);
            return CleanUp(ORVPROV_E_UNEXPECTED_ERROR);
        }
        hr = RegisterVss();
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("RegisterVss FAILED [hr=0x%08x]\n"), hr);
            return CleanUp(hr);
        }
        hr = _Module.RegisterServer(IDR_ORVPROV, TRUE, TRUE, pszAccount, pszPassword);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("RegisterServer FAILED [hr=0x%08x]\n"), hr);
            return CleanUp(hr);
        }
    } else if (lstrcmpiW(pszRegister, W("exe")) == 0) {
        TRACE(TRACE_LEVEL_INFO, W("Reg exe\n"));
        hr = _Module.RegisterServer(IDR_ORVPROV, TRUE, FALSE, nullptr, nullptr);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("RegisterServer FAILED [hr=0x%08x]\n"), hr);
            return CleanUp(hr);
        }
        hr = RegisterVss();
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("RegisterVss FAILED [hr=0x%08x]\n"), hr);
            return CleanUp(hr);
        }
    } else {
        ShowRegisterModeError();
        return CleanUp(ORVPROV_E_UNEXPECTED_ERROR);
    }

    COrvaneHardwareProvider::UninitializeClass();
    return CleanUp(S_OK);
}
