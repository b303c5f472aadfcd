// The service's tunable parameters, read from the registry at start-up and re-read by a watcher
// thread whenever anything under the Parameters key changes.
#pragma once

#include "pal/regkey.h"
#include "pal/windef.h"
#include "pal/winerror.h"

#define ORV_PARAMETERS_KEY W("System\\CurrentControlSet\\Services\\Orvhwsvc\\Parameters")
#define ORV_DEFAULT_TRACE_FILE W("orvp")

class CConfig
{
public:
    static HRESULT Initialize();
    static HRESULT Terminate();
    static HRESULT ReadRegValues();
    static HRESULT CreateRegThread();
    static DWORD WINAPI RegThread(LPVOID pvUnused);
    static void StopRegThread();

    // Reads a REG_SZ or REG_EXPAND_SZ value that fits in cbLimit bytes and ends with its
    // terminator. A missing or empty value, like one of the wrong type, reads as
    // ERROR_INVALID_DATA.
    static LONG ReadString(CRegKey& regKey, LPCWSTR pszValueName, LPWSTR pszBuffer, ULONG cbLimit);

    static DWORD GetTraceMask();
    static void SetTraceMask(DWORD dwTraceMask);
    static DWORD GetStoreSubsystemType();
    static DWORD GetTraceFileMaxSize();
    static DWORD GetAsyncCreateSnapshot();
    static DWORD GetAutoShutdown();
    static DWORD GetMaxTesseraWait();
    static DWORD GetMaxVssWait();
    static DWORD GetUpdateReplicorOnSnapshot();
    static BOOL IsTxfRecoveryEnabled();
    static BOOL IsDatasetsEnabled();
    static LPCWSTR GetTraceFile();

    // Other threads read the 32-bit members without a lock while the watcher rewrites them;
    // every access goes through relaxed atomic loads and stores.
    static DWORD sm_dwTraceMask;
    static DWORD sm_dwStoreSubsystemType;
    static DWORD sm_dwTraceFileMaxSize;
    static DWORD sm_dwAsyncCreateSnapshot;
    static DWORD sm_dwAutoShutdown;
    static DWORD sm_dwMaxTesseraWait;
    static DWORD sm_dwMaxVssWait;
    static DWORD sm_dwUpdateReplicorOnSnapshot;
    static DWORD sm_fTxfRecoveryEnabled;
    static DWORD sm_fDatasetsEnabled;
    static WCHAR sm_szTraceFile[MAX_PATH];

    // Puts every member back to its start-up value (tests only: a process starts this way).
    static void ResetForTest();

private:
    static BOOL sm_fInitialized;
    static LONG sm_lStop;
    static HANDLE sm_hThread;
    static HANDLE sm_hChangeEvent;
    static HKEY sm_hNotifyKey;
};
