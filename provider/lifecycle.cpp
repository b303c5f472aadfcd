// The provider object's life: the class's event log writer, construction and destruction, the
// load and unload notifications, the core's creation, the storage service's version check and
// the detection of auto-recovery support.
#include "diag/config.h"
#include "diag/trace.h"
#include "provider/callguard.h"
#include "provider/hwprovider.h"
#include "res/orvmsg.h"
#include "store/tessera.h"
#include "store/vdcache.h"

#include "pal/comdef.h"
#include "pal/errhandlingapi.h"
#include "pal/libloaderapi.h"
#include "pal/oleauto.h"
#include "pal/regkey.h"
#include "pal/winbase.h"

#include <cstring>
#include <new>

CEventLog* COrvaneHardwareProvider::m_pEvent = nullptr;
WCHAR COrvaneHardwareProvider::sm_szTesseraVersion[MAX_PATH] = {};
OSVERSIONINFOEXW COrvaneHardwareProvider::sm_osVersion = {};
BOOLEAN COrvaneHardwareProvider::sm_fHyperVRoleEnabled = FALSE;

namespace {

constexpr WCHAR kTesseraKey[] = W("Software\\Halvern\\Tessera");
constexpr WCHAR kProductVersion[] = W("ProductVersion");
constexpr WCHAR kOldestTesseraVersion[] = W("3.2.0.0");
constexpr ULONG kVersionBytes = 260;

// Reads the version as the registry offers it: a string type, of even length, terminated.
LONG ReadVersion(CRegKey& key, LPWSTR pszVersion)
{
    DWORD dwType = 0;
    ULONG cb = kVersionBytes;
    LONG lError = RegQueryValueExW(key, kProductVersion, nullptr, &dwType,
                                   reinterpret_cast<LPBYTE>(pszVersion), &cb);
    if (lError != ERROR_SUCCESS)
        return lError == ERROR_FILE_NOT_FOUND ? ERROR_INVALID_DATA : lError;
    if (dwType != REG_SZ && dwType != REG_EXPAND_SZ && dwType != REG_MULTI_SZ)
        return ERROR_INVALID_DATA;
    const ULONG cch = cb / sizeof(WCHAR);
    if (cb % sizeof(WCHAR) != 0 || cch == 0 || pszVersion[cch - 1] != 0 ||
        (dwType == REG_MULTI_SZ && (cch < 2 || pszVersion[cch - 2] != 0)))
        return ERROR_INVALID_DATA;
    return ERROR_SUCCESS;
}

} // namespace

BOOL COrvaneHardwareProvider::InitializeClass()
{
    m_pEvent = new (std::nothrow) CEventLog;
    if (m_pEvent == nullptr) {
        TRACE(TRACE_LEVEL_ERROR, W("new CEventLog FAILED\n"));
        return FALSE;
    }
    HRESULT hr = m_pEvent->Initialize(W("Orvhwsvc"));
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pEvent->Initialize FAILED [hr=0x%08x]\n"), hr);
        delete m_pEvent;
        m_pEvent = nullptr;
        return FALSE;
    }
    return TRUE;
}

void COrvaneHardwareProvider::UninitializeClass()
{
    delete m_pEvent;
    m_pEvent = nullptr;
}

COrvaneHardwareProvider::COrvaneHardwareProvider()
    : m_pProvider(nullptr), m_lTargetLunsInfoBuilt(0), m_dwCommitTime(0),
      m_hrCommit(S_OK), m_szSnapshotSetId{}, m_fCommitCalled(FALSE)
{
    CTraceScope scope(W("COrvaneHardwareProvider::COrvaneHardwareProvider"));
    TRACE(TRACE_LEVEL_INFO, W("this=0x%08p\n"), this);
}

COrvaneHardwareProvider::~COrvaneHardwareProvider()
{
    CTraceScope scope(W("COrvaneHardwareProvider::~COrvaneHardwareProvider"));
    TRACE(TRACE_LEVEL_INFO, W("this=0x%08p\n"), this);
    delete m_pProvider;
    m_pProvider = nullptr;
}

HRESULT COrvaneHardwareProvider::Initialize()
{
    CTraceScope scope(W("COrvaneHardwareProvider::Initialize"));
    if (m_pProvider != nullptr)
        return S_OK;
    m_pProvider = new (std::nothrow) CProviderCore;
    if (m_pProvider == nullptr) {
        TRACE(TRACE_LEVEL_ERROR, W("new CProviderCoreFAILED\n"));
        return E_OUTOFMEMORY;
    }
    HRESULT hr = m_pProvider->Initialize();
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->Initialize FAILED [hr=0x%08x]\n"), hr);
        delete m_pProvider;
        m_pProvider = nullptr;
        return hr;
    }
    return S_OK;
}

STDMETHODIMP COrvaneHardwareProvider::OnLoad(IUnknown* pCallback)
{
    CTraceScope scope(W("COrvaneHardwareProvider::OnLoad"));
    CCallGuard guard(CallGuardOp::OnLoad, m_pEvent, sm_szTesseraVersion);
    if (TraceIsOn(TRACE_LEVEL_INFO)) {
        TraceW(W("this=0x%08p\n"), this);
        TraceW(W("pCallback=0x%08x\n"), static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(pCallback)));
        TraceW(W("Initializing...\n"));
    }
    if (!CheckTesseraVersion()) {
        TRACE(TRACE_LEVEL_ERROR, W("CheckTesseraVersion FAILED\n"));
        return guard.SetResult(ORVPROV_E_INCORRECT_TESSERA);
    }
    HRESULT hr = CConfig::Initialize();
    if (FAILED(hr))
        TRACE(TRACE_LEVEL_INFO, W("CConfig::Initialize FAILED [hr=0x%08x]\n"), hr);
    hr = Initialize();
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("Initialize FAILED [hr=0x%08x]\n"), hr);
        return guard.SetResult(hr);
    }
    TRACE(TRACE_LEVEL_INFO, W("Checking Hyper-V role enabled\n"));
    IsAutoRecoverySupported();
    if (m_pEvent != nullptr)
        m_pEvent->Log(ORVPROV_EVENT_PROVIDER_LOADED, 0);
    return guard.SetResult(S_OK);
}

STDMETHODIMP COrvaneHardwareProvider::OnUnload(BOOL bForceUnload)
{
    CTraceScope scope(W("COrvaneHardwareProvider::OnUnload"));
    if (m_pEvent != nullptr)
        m_pEvent->Log(ORVPROV_EVENT_PROVIDER_UNLOADED, 0);
    TRACE(TRACE_LEVEL_INFO, W("this=0x%08p\n"), this);
    TRACE(TRACE_LEVEL_INFO, W("bForceUnload=%d\n"), bForceUnload);
    return S_OK;
}

BOOL CheckTesseraVersion()
{
    CTraceScope scope(W("CheckTesseraVersion"));
    CRegKey key;
    LONG lError = key.Open(HKEY_LOCAL_MACHINE, kTesseraKey, KEY_READ);
    if (lError != ERROR_SUCCESS) {
        TRACE(TRACE_LEVEL_ERROR, W("regKey.Open on %s regkey FAILED [error=%d]\n"), kTesseraKey,
              lError);
        return FALSE;
    }
    WCHAR szVersion[MAX_PATH] = {};
    lError = ReadVersion(key, szVersion);
    if (lError != ERROR_SUCCESS) {
        TRACE(TRACE_LEVEL_ERROR, W("regKey.QueryValue on %s regval [error=%d]\n"), kProductVersion,
              lError);
        return FALSE;
    }
    TRACE(TRACE_LEVEL_INFO, W("TSVERSION is %s\n"), szVersion);
    std::memcpy(COrvaneHardwareProvider::sm_szTesseraVersion, szVersion, sizeof(szVersion));
    // A textual comparison, as the service's installer writes versions: "10.0.0.0" sorts
    // before "3.2.0.0".
    if (lstrcmpW(szVersion, kOldestTesseraVersion) < 0) {
        TRACE(TRACE_LEVEL_ERROR,
              W("Tessera version %s is not compatible with this version of VS Provider\n"),
              szVersion);
        return FALSE;
    }
    TRACE(TRACE_LEVEL_INFO, W("Tessera Version currently installed is supported\n"));
    return TRUE;
}

BOOL IsAutoRecoverySupported()
{
    CTraceScope scope(W("IsAutoRecoverySupported"));
    OSVERSIONINFOEXW& os = COrvaneHardwareProvider::sm_osVersion;
    BOOLEAN& fEnabled = COrvaneHardwareProvider::sm_fHyperVRoleEnabled;
    if (os.dwOSVersionInfoSize == 0) {
        SYSTEM_INFO si = {};
        os.dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXW);
        if (!GetVersionExW(reinterpret_cast<LPOSVERSIONINFOW>(&os))) {
            TRACE(TRACE_LEVEL_ERROR, W("GetVersionEx returned error: %d"),
                  HRESULT_FROM_WIN32(GetLastError()));
            return FALSE;
        }
        using GetNativeSystemInfoFn = void(WINAPI*)(LPSYSTEM_INFO);
        auto pfnNative = reinterpret_cast<GetNativeSystemInfoFn>(reinterpret_cast<void (*)()>(
            GetProcAddress(GetModuleHandleW(W("kernel32.dll")), "GetNativeSystemInfo")));
        if (pfnNative != nullptr)
            pfnNative(&si);
        else
            GetSystemInfo(&si);
        if (si.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 &&
            os.dwPlatformId == VER_PLATFORM_WIN32_NT && os.dwMajorVersion >= 6) {
            if (TraceIsOn(TRACE_LEVEL_INFO)) {
                TraceW(W("This is x64 based W2K8 or later.\n"));
                TraceW(W("W2K8 Enterprise Server or Server Core. Getting IHyperVSupport\n"));
            }
            IHyperVSupport* pHyperVSupport = nullptr;
            HRESULT hr = GetHyperVSupport(&pHyperVSupport);
            if (FAILED(hr)) {
                TRACE(TRACE_LEVEL_ERROR, W("GetHyperVSupport FAILED [hr=0x%08x]\n"), hr);
                return FALSE;
            }
            TRACE(TRACE_LEVEL_INFO, W("Executing IHyperVSupport->IsHyperVRoleEnabled ... \n"));
            try {
                hr = pHyperVSupport->IsHyperVRoleEnabled(&fEnabled);
            } catch (const _com_error& e) {
                BSTR bstrDescription = e.Description();
                TRACE(
                    TRACE_LEVEL_ERROR,
                    W("Exception occured during c.pHyperVSupport->IsHyperVRoleEnabled. Error Description: %s\n"),
                    bstrDescription);
                SysFreeString(bstrDescription);
                hr = S_OK;
            }
            pHyperVSupport->Release();
            if (FAILED(hr)) {
                TRACE(TRACE_LEVEL_ERROR,
                      W("c.pHyperVSupport->IsHyperVRoleEnabled FAILED [hr=0x%08x]\n"), hr);
                return FALSE;
            }
        }
    }
    if (fEnabled) {
        TRACE(TRACE_LEVEL_INFO, W("Hyper-V Role is enabled\n"));
        return TRUE;
    }
    TRACE(TRACE_LEVEL_INFO,
          W("Hyper-V Role is NOT enabled. Auto-recovery will not be supported\n"));
    return FALSE;
}
