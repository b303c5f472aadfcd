// Trace files: naming, first open, rollover and the search for today's newest file.
#include "diag/trace.h"
#include "diag/tracestate.h"
#include "pal/crt.h"
#include "pal/fileapi.h"
#include "pal/stringapiset.h"
#include "pal/sysinfoapi.h"
#include "pal/winbase.h"
#include "pal/winuser.h"

#include <cstdlib>

namespace {

constexpr DWORD SEQUENCE_LIMIT = 10000;
// Four digits and ".log".
constexpr int SEQUENCE_SUFFIX_LENGTH = 8;

} // namespace

TRACE_ABANDONED_FILES g_traceAbandoned;

void TraceAbandonFile(FILE* pFile)
{
    if (!pFile)
        return;
    if (g_traceAbandoned.cFiles < static_cast<int>(ARRAYSIZE(g_traceAbandoned.rgFiles)))
        g_traceAbandoned.rgFiles[g_traceAbandoned.cFiles++] = pFile;
}

void TraceBuildFileName(WCHAR (&szPath)[TRACE_PATH_CCH], WORD wMonth, WORD wDay, DWORD dwSequence)
{
    wsprintfW(szPath, W("%s%s%02d%02d%04d.log"), g_trace.szDirectory, g_trace.szPrefix, wMonth,
              wDay, dwSequence);
}

DWORD TraceFindHighestSequence(WORD wMonth, WORD wDay)
{
    WCHAR szStem[TRACE_PATH_CCH];
    int cchStem = wsprintfW(szStem, W("%s%02d%02d"), g_trace.szPrefix, wMonth, wDay);

    WCHAR szPattern[TRACE_PATH_CCH];
    wsprintfW(szPattern, W("%s%s*.log"), g_trace.szDirectory, szStem);

    WIN32_FIND_DATAW findData;
    HANDLE hFind = FindFirstFileW(szPattern, &findData);
    if (hFind == INVALID_HANDLE_VALUE)
        return 0;

    DWORD dwBest = 0;
    do {
        int cchName = lstrlenW(findData.cFileName);
        if (cchName != cchStem + SEQUENCE_SUFFIX_LENGTH)
            continue;
        WCHAR szDigits[5];
        lstrcpynW(szDigits, findData.cFileName + cchName - SEQUENCE_SUFFIX_LENGTH, 5);
        char szNarrow[16] = {};
        WideCharToMultiByte(CP_ACP, 0, szDigits, -1, szNarrow, sizeof(szNarrow), nullptr, nullptr);
        auto dwNumber = static_cast<DWORD>(std::atoi(szNarrow));
        if (dwNumber > dwBest) {
            dwBest = dwNumber;
            g_trace.dwBytesCounted = findData.nFileSizeLow;
        }
    } while (FindNextFileW(hFind, &findData));
    FindClose(hFind);
    return dwBest;
}

void TraceOpenFile(bool fRollover)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    bool fDayChanged = g_trace.wLastMonth != 0 && g_trace.wLastDay != 0 &&
                       (g_trace.wLastMonth != now.wMonth || g_trace.wLastDay != now.wDay);
    g_trace.wLastMonth = now.wMonth;
    g_trace.wLastDay = now.wDay;
    g_trace.dwBytesCounted = 0;

    if (fRollover)
        g_trace.dwSequence = fDayChanged ? 0 : (g_trace.dwSequence + 1) % SEQUENCE_LIMIT;
    else
        g_trace.dwSequence = TraceFindHighestSequence(now.wMonth, now.wDay);

    WCHAR szPath[TRACE_PATH_CCH];
    TraceBuildFileName(szPath, now.wMonth, now.wDay, g_trace.dwSequence);
    if (g_trace.pFile) {
        fclose(g_trace.pFile);
        g_trace.pFile = nullptr;
    }
    g_trace.pFile = _wfopen(szPath, fRollover ? W("w+") : W("a+"));
}
