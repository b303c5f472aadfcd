#include "diag/config.h"
#include "diag/trace.h"
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/interlockedapi.h"
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"
#include "pal/winbase.h"

namespace {

constexpr DWORD DEFAULT_TRACE_MASK = 4;
constexpr DWORD DEFAULT_STORE_SUBSYSTEM_TYPE = 1;
constexpr DWORD DEFAULT_TRACE_FILE_MAX_SIZE = 10485760;
constexpr DWORD DEFAULT_ASYNC_CREATE_SNAPSHOT = 1;
constexpr DWORD DEFAULT_AUTO_SHUTDOWN = 1;
constexpr DWORD DEFAULT_MAX_TESSERA_WAIT = 600;
constexpr DWORD DEFAULT_MAX_VSS_WAIT = 1200;
constexpr DWORD DEFAULT_UPDATE_REPLICOR_ON_SNAPSHOT = 0;
// 129 characters and the terminator.
constexpr ULONG TRACE_FILE_BYTE_LIMIT = 260;

void TraceValueReadFailure(LPCWSTR pszValueName, LONG lError)
{
    TraceW(W("regKey.QueryValue on %s regval [error=%d]\n"), pszValueName, lError);
}

// Reads a 32-bit value straight into a member: a failed read leaves the member as it was.
void ReadMember(CRegKey& regKey, LPCWSTR pszValueName, DWORD* pdwMember)
{
    DWORD dwValue = 0;
    LONG lError = regKey.QueryDWORDValue(pszValueName, dwValue);
    if (lError != ERROR_SUCCESS) {
        TraceValueReadFailure(pszValueName, lError);
        return;
    }
    WriteULongNoFence(pdwMember, dwValue);
}

// A value above 0 turns the feature on; nothing turns it off again until the process restarts.
void ReadLatch(CRegKey& regKey, LPCWSTR pszValueName, DWORD* pfMember)
{
    DWORD dwValue = 0;
    LONG lError = regKey.QueryDWORDValue(pszValueName, dwValue);
    if (lError != ERROR_SUCCESS)
        TraceValueReadFailure(pszValueName, lError);
    if (dwValue > 0)
        WriteULongNoFence(pfMember, TRUE);
}

void CloseHandleIfSet(HANDLE* ph)
{
    if (*ph) {
        CloseHandle(*ph);
        *ph = nullptr;
    }
}

void CloseKeyIfSet(HKEY* phKey)
{
    if (*phKey) {
        RegCloseKey(*phKey);
        *phKey = nullptr;
    }
}

} // namespace

DWORD CConfig::sm_dwTraceMask = DEFAULT_TRACE_MASK;
DWORD CConfig::sm_dwStoreSubsystemType = DEFAULT_STORE_SUBSYSTEM_TYPE;
DWORD CConfig::sm_dwTraceFileMaxSize = DEFAULT_TRACE_FILE_MAX_SIZE;
DWORD CConfig::sm_dwAsyncCreateSnapshot = DEFAULT_ASYNC_CREATE_SNAPSHOT;
DWORD CConfig::sm_dwAutoShutdown = DEFAULT_AUTO_SHUTDOWN;
DWORD CConfig::sm_dwMaxTesseraWait = DEFAULT_MAX_TESSERA_WAIT;
DWORD CConfig::sm_dwMaxVssWait = DEFAULT_MAX_VSS_WAIT;
DWORD CConfig::sm_dwUpdateReplicorOnSnapshot = DEFAULT_UPDATE_REPLICOR_ON_SNAPSHOT;
DWORD CConfig::sm_fTxfRecoveryEnabled = FALSE;
DWORD CConfig::sm_fDatasetsEnabled = FALSE;
WCHAR CConfig::sm_szTraceFile[MAX_PATH] = {};

BOOL CConfig::sm_fInitialized = FALSE;
LONG CConfig::sm_lStop = 0;
HANDLE CConfig::sm_hThread = nullptr;
HANDLE CConfig::sm_hChangeEvent = nullptr;
HKEY CConfig::sm_hNotifyKey = nullptr;

HRESULT CConfig::Initialize()
{
    CTraceScope scope(W("CConfig::Initialize"));
    if (sm_fInitialized) {
        TRACE(TRACE_LEVEL_INFO, W("Already initialized\n"));
        return S_OK;
    }
    HRESULT hr = ReadRegValues();
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("ReadRegValues FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    hr = CreateRegThread();
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("CreateRegThread FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    sm_fInitialized = TRUE;
    return S_OK;
}

LONG CConfig::ReadString(CRegKey& regKey, LPCWSTR pszValueName, LPWSTR pszBuffer, ULONG cbLimit)
{
    ULONG cchValue = cbLimit / sizeof(WCHAR);
    LONG lError = regKey.QueryStringValue(pszValueName, pszBuffer, &cchValue);
    // Empty data has no terminator, so it is not a string that can be used.
    if (lError == ERROR_FILE_NOT_FOUND || (lError == ERROR_SUCCESS && cchValue == 0))
        return ERROR_INVALID_DATA;
    return lError;
}

HRESULT CConfig::ReadRegValues()
{
    CTraceScope scope(W("CConfig::ReadRegValues"));
    CRegKey regKey;
    LONG lError = regKey.Open(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_READ);
    if (lError != ERROR_SUCCESS) {
        TraceW(W("regKey.Open on %s regkey FAILED [error=%d]\n"), ORV_PARAMETERS_KEY, lError);
        CRegKey created;
        lError = created.Create(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_ALL_ACCESS);
        if (lError != ERROR_SUCCESS) {
            TraceW(W("regKey.Create on %s regkey FAILED [error=%d]\n"), ORV_PARAMETERS_KEY, lError);
            return HRESULT_FROM_WIN32(lError);
        }
        created.Close();
        lError = regKey.Open(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_READ);
        if (lError != ERROR_SUCCESS) {
            TraceW(W("regKey.Open on %s regkey FAILED [error=%d]\n"), ORV_PARAMETERS_KEY, lError);
            return HRESULT_FROM_WIN32(lError);
        }
    }

    DWORD dwTraceMask = 0;
    if (regKey.QueryDWORDValue(W("TraceMask"), dwTraceMask) == ERROR_SUCCESS &&
        dwTraceMask != GetTraceMask()) {
        SetTraceMask(dwTraceMask);
        TraceSetLevel(dwTraceMask);
    }
    TRACE(TRACE_LEVEL_INFO, W("sm_dwTraceMask=%d\n"), GetTraceMask());

    struct NUMBER_VALUE
    {
        LPCWSTR pszName;
        DWORD* pdwMember;
        LPCWSTR pszTraceFormat;
    };
    const NUMBER_VALUE numbers[] = {
        {W("StoreSubsystemType"), &sm_dwStoreSubsystemType, W("sm_dwStoreSubsystemType=%d\n")},
        {W("TraceFileMaxSize"), &sm_dwTraceFileMaxSize, W("sm_dwTraceFileMaxSize=%d\n")},
        {W("AsyncCreateSnapshot"), &sm_dwAsyncCreateSnapshot, W("sm_dwAsyncCreateSnapshot=%d\n")},
        {W("AutoShutdown"), &sm_dwAutoShutdown, W("sm_dwAutoShutdown=%d\n")},
        {W("MaxTesseraWait"), &sm_dwMaxTesseraWait, W("sm_dwMaxTesseraWait=%d\n")},
        {W("MaxVssWait"), &sm_dwMaxVssWait, W("sm_dwMaxVssWait=%d\n")},
        {W("UpdateReplicorOnSnapshot"), &sm_dwUpdateReplicorOnSnapshot,
         W("sm_dwUpdateReplicorOnSnapshot=%d\n")},
    };
    for (const NUMBER_VALUE& number : numbers) {
        ReadMember(regKey, number.pszName, number.pdwMember);
        TRACE(TRACE_LEVEL_INFO, number.pszTraceFormat, ReadULongNoFence(number.pdwMember));
    }

    ReadLatch(regKey, W("EnableTxfRecovery"), &sm_fTxfRecoveryEnabled);
    TRACE(TRACE_LEVEL_INFO, W("sm_fTxfRecoveryEnabled=%s\n"),
          IsTxfRecoveryEnabled() ? W("TRUE") : W("FALSE"));
    ReadLatch(regKey, W("EnableDatasets"), &sm_fDatasetsEnabled);

    lError = ReadString(regKey, W("TraceFile"), sm_szTraceFile, TRACE_FILE_BYTE_LIMIT);
    if (lError != ERROR_SUCCESS) {
        TraceValueReadFailure(W("TraceFile"), lError);
        lstrcpynW(sm_szTraceFile, ORV_DEFAULT_TRACE_FILE, MAX_PATH);
    }
    TRACE(TRACE_LEVEL_INFO, W("sm_szTraceFile=%s\n"), sm_szTraceFile);
    return S_OK;
}

HRESULT CConfig::CreateRegThread()
{
    CTraceScope scope(W("CConfig::CreateRegThread"));
    LONG lError =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, 0, KEY_NOTIFY, &sm_hNotifyKey);
    if (lError != ERROR_SUCCESS) {
        sm_hNotifyKey = nullptr;
        TRACE(TRACE_LEVEL_ERROR, W("RegOpenKeyEx FAILED [dwError=0x%08x]\n"), lError);
        return HRESULT_FROM_WIN32(lError);
    }

    sm_hChangeEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (!sm_hChangeEvent) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("CreateEvent FAILED [dwError=0x%08x]\n"), dwError);
        CloseKeyIfSet(&sm_hNotifyKey);
        return HRESULT_FROM_WIN32(dwError);
    }

    sm_hThread = CreateThread(nullptr, 0, RegThread, nullptr, 0, nullptr);
    if (!sm_hThread) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("CreateThread FAILED [dwError=0x%08x]\n"), dwError);
        CloseHandleIfSet(&sm_hChangeEvent);
        CloseKeyIfSet(&sm_hNotifyKey);
        return HRESULT_FROM_WIN32(dwError);
    }
    return S_OK;
}

DWORD WINAPI CConfig::RegThread(LPVOID)
{
    CTraceScope scope(W("CConfig::RegThread"));
    for (;;) {
        LONG lError = RegNotifyChangeKeyValue(sm_hNotifyKey, TRUE, REG_NOTIFY_CHANGE_LAST_SET,
                                              sm_hChangeEvent, TRUE);
        if (lError != ERROR_SUCCESS) {
            // The line has always carried the thread's last error, not the returned code; keep
            // it so that existing trace readers see the same field.
            TRACE(TRACE_LEVEL_ERROR, W("RegNotifyChangeKeyValue FAILED [dwError=0x%08x]\n"),
                  GetLastError());
            break;
        }
        TRACE(TRACE_LEVEL_INFO, W("**** RegThread is calling WaitForSingleObject\n"));
        if (WaitForSingleObject(sm_hChangeEvent, INFINITE) == WAIT_FAILED) {
            TRACE(TRACE_LEVEL_ERROR, W("WaitForSingleObject FAILED [dwError=0x%08x]\n"),
                  GetLastError());
            break;
        }
        TRACE(TRACE_LEVEL_INFO, W("**** RegThread wakes up\n"));
        if (ReadNoFence(&sm_lStop) == 1)
            break;
        ReadRegValues();
    }
    TRACE(TRACE_LEVEL_INFO, W("**** RegThread exits\n"));
    return 0;
}

void CConfig::StopRegThread()
{
    WriteNoFence(&sm_lStop, 1);
    if (sm_hChangeEvent)
        SetEvent(sm_hChangeEvent);
}

HRESULT CConfig::Terminate()
{
    CTraceScope scope(W("CConfig::Terminate"));
    StopRegThread();
    if (sm_hThread) {
        TRACE(TRACE_LEVEL_INFO, W("Waiting for RegThread to exit\n"));
        if (WaitForSingleObject(sm_hThread, INFINITE) == WAIT_FAILED) {
            TRACE(TRACE_LEVEL_ERROR, W("WaitForSingleObject FAILED [dwError=0x%08x]\n"),
                  GetLastError());
        }
    }
    sm_fInitialized = FALSE;
    WriteNoFence(&sm_lStop, 0);
    CloseHandleIfSet(&sm_hThread);
    CloseHandleIfSet(&sm_hChangeEvent);
    CloseKeyIfSet(&sm_hNotifyKey);
    return S_OK;
}

DWORD CConfig::GetTraceMask()
{
    return ReadULongNoFence(&sm_dwTraceMask);
}
void CConfig::SetTraceMask(DWORD dwTraceMask)
{
    WriteULongNoFence(&sm_dwTraceMask, dwTraceMask);
}
DWORD CConfig::GetStoreSubsystemType()
{
    return ReadULongNoFence(&sm_dwStoreSubsystemType);
}
DWORD CConfig::GetTraceFileMaxSize()
{
    return ReadULongNoFence(&sm_dwTraceFileMaxSize);
}
DWORD CConfig::GetAsyncCreateSnapshot()
{
    return ReadULongNoFence(&sm_dwAsyncCreateSnapshot);
}
DWORD CConfig::GetAutoShutdown()
{
    return ReadULongNoFence(&sm_dwAutoShutdown);
}
DWORD CConfig::GetMaxTesseraWait()
{
    return ReadULongNoFence(&sm_dwMaxTesseraWait);
}
DWORD CConfig::GetMaxVssWait()
{
    return ReadULongNoFence(&sm_dwMaxVssWait);
}
DWORD CConfig::GetUpdateReplicorOnSnapshot()
{
    return ReadULongNoFence(&sm_dwUpdateReplicorOnSnapshot);
}
BOOL CConfig::IsTxfRecoveryEnabled()
{
    return ReadULongNoFence(&sm_fTxfRecoveryEnabled);
}
BOOL CConfig::IsDatasetsEnabled()
{
    return ReadULongNoFence(&sm_fDatasetsEnabled);
}
LPCWSTR CConfig::GetTraceFile()
{
    return sm_szTraceFile;
}

void CConfig::ResetForTest()
{
    SetTraceMask(DEFAULT_TRACE_MASK);
    WriteULongNoFence(&sm_dwStoreSubsystemType, DEFAULT_STORE_SUBSYSTEM_TYPE);
    WriteULongNoFence(&sm_dwTraceFileMaxSize, DEFAULT_TRACE_FILE_MAX_SIZE);
    WriteULongNoFence(&sm_dwAsyncCreateSnapshot, DEFAULT_ASYNC_CREATE_SNAPSHOT);
    WriteULongNoFence(&sm_dwAutoShutdown, DEFAULT_AUTO_SHUTDOWN);
    WriteULongNoFence(&sm_dwMaxTesseraWait, DEFAULT_MAX_TESSERA_WAIT);
    WriteULongNoFence(&sm_dwMaxVssWait, DEFAULT_MAX_VSS_WAIT);
    WriteULongNoFence(&sm_dwUpdateReplicorOnSnapshot, DEFAULT_UPDATE_REPLICOR_ON_SNAPSHOT);
    WriteULongNoFence(&sm_fTxfRecoveryEnabled, FALSE);
    WriteULongNoFence(&sm_fDatasetsEnabled, FALSE);
    sm_szTraceFile[0] = 0;
}
