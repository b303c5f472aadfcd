// Start-up of the trace log from the executable's location and the configuration.
#include "diag/config.h"
#include "diag/trace.h"
#include "pal/libloaderapi.h"

namespace {

// The directory part of a path, separator included. Both separators are accepted so that the
// same code cuts Windows and POSIX paths.
void CutAfterLastSeparator(LPWSTR pszPath)
{
    LPWSTR pszCut = nullptr;
    for (LPWSTR p = pszPath; *p; ++p) {
        if (*p == W('\\') || *p == W('/'))
            pszCut = p + 1;
    }
    if (pszCut)
        *pszCut = 0;
}

} // namespace

void InitializeTraceFromRegistry()
{
    WCHAR szDirectory[MAX_PATH + 1] = {};
    GetModuleFileNameW(nullptr, szDirectory, MAX_PATH);
    CutAfterLastSeparator(szDirectory);
    TraceW(W("szTraceFileDir=%s\n"), szDirectory);

    CRegKey regKey;
    DWORD dwTraceMask = 0;
    if (regKey.Open(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_READ) == ERROR_SUCCESS &&
        regKey.QueryDWORDValue(W("TraceMask"), dwTraceMask) == ERROR_SUCCESS) {
        CConfig::SetTraceMask(dwTraceMask);
        TraceInit(CConfig::GetTraceMask(), szDirectory, CConfig::GetTraceFile(),
                  CConfig::GetTraceFileMaxSize());
        TraceW(W("Trace is initialized from registry. TraceMask=%d.\n"), dwTraceMask);
    } else {
        TraceInit(CConfig::GetTraceMask(), szDirectory, CConfig::GetTraceFile(),
                  CConfig::GetTraceFileMaxSize());
        TraceW(W("Trace is initialized with default value. TraceMask=%d.\n"),
               CConfig::GetTraceMask());
    }
}
