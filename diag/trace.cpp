// Trace lines: levels, the per-thread prefix and indentation, and output to the debugger and
// the file.
#include "diag/trace.h"
#include "diag/tracestate.h"
#include "pal/crt.h"
#include "pal/debugapi.h"
#include "pal/interlockedapi.h"
#include "pal/processthreadsapi.h"
#include "pal/sysinfoapi.h"
#include "pal/winbase.h"
#include "pal/winuser.h"

#include <cstdarg>

TRACE_STATE g_trace;
CRITICAL_SECTION g_traceLock;

namespace {

constexpr DWORD MAX_FILE_SIZE_DEFAULT = 104857600;
constexpr DWORD MAX_FILE_SIZE_MINIMUM = 102400;
constexpr int INDENT_STEP = 4;
constexpr int INDENT_MAX = 100;
constexpr int LINE_CCH = 1024;

// The trace lock exists before any code of the program runs.
struct CTraceLockInit
{
    CTraceLockInit() { InitializeCriticalSection(&g_traceLock); }
} g_traceLockInit;

struct CTraceLock
{
    CTraceLock() { EnterCriticalSection(&g_traceLock); }
    ~CTraceLock() { LeaveCriticalSection(&g_traceLock); }
    CTraceLock(const CTraceLock&) = delete;
    CTraceLock& operator=(const CTraceLock&) = delete;
};

thread_local BOOL t_fAtLineStart = FALSE;
thread_local int t_nIndent = 0;

void IndentThread()
{
    t_nIndent = t_nIndent + INDENT_STEP > INDENT_MAX ? INDENT_MAX : t_nIndent + INDENT_STEP;
}

void OutdentThread()
{
    t_nIndent = t_nIndent - INDENT_STEP < 0 ? 0 : t_nIndent - INDENT_STEP;
}

bool HasFileSettings()
{
    return g_trace.szDirectory[0] != 0 && g_trace.szPrefix[0] != 0;
}

void CopyString(WCHAR (&szDest)[MAX_PATH], LPCWSTR pszSource)
{
    lstrcpynW(szDest, pszSource, MAX_PATH);
}

// Writes one piece of text to the file, rolling over first when it would pass the size limit.
// The size is counted per character (cbPerChar), not by what the runtime writes.
template <typename CharT>
void WriteToFile(const CharT* pszText, int cchText)
{
    CTraceLock lock;
    // The commit suspends the file without the lock, so the flag is read atomically too.
    if (!ReadNoFence(&g_trace.fFileOutputEnabled) || !g_trace.pFile)
        return;
    DWORD cbText = static_cast<DWORD>(cchText) * sizeof(CharT);
    if (g_trace.dwBytesCounted + cbText > g_trace.dwMaxFileSize) {
        TraceOpenFile(true);
        if (!g_trace.pFile)
            return;
    }
    if constexpr (sizeof(CharT) == sizeof(WCHAR))
        fputws(pszText, g_trace.pFile);
    else
        fputs(pszText, g_trace.pFile);
    fflush(g_trace.pFile);
    g_trace.dwBytesCounted += cbText;
}

void OutputW(LPCWSTR pszText, int cchText)
{
    OutputDebugStringW(pszText);
    WriteToFile(pszText, cchText);
}

void OutputA(LPCSTR pszText, int cchText)
{
    OutputDebugStringA(pszText);
    WriteToFile(pszText, cchText);
}

// Prefix and indentation of a thread's line; both are written only at the start of a line.
template <typename CharT>
void WriteLineStart(void (*pfnOutput)(const CharT*, int),
                    int (*pfnFormat)(CharT*, const CharT*, ...), const CharT* pszPrefixFormat)
{
    if (!t_fAtLineStart)
        return;
    SYSTEMTIME now;
    GetLocalTime(&now);
    CharT szPrefix[64];
    int cch = pfnFormat(szPrefix, pszPrefixFormat, GetCurrentThreadId(), now.wMonth, now.wDay,
                        now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
    pfnOutput(szPrefix, cch);
    if (t_nIndent > 0) {
        CharT szSpaces[INDENT_MAX + 1];
        for (int i = 0; i < t_nIndent; ++i)
            szSpaces[i] = ' ';
        szSpaces[t_nIndent] = 0;
        pfnOutput(szSpaces, t_nIndent);
    }
}

} // namespace

void TraceInit(DWORD dwLevel, LPCWSTR pszDirectory, LPCWSTR pszPrefix, DWORD dwMaxFileSize)
{
    // The configuration's watcher thread may already be tracing: the file's settings change
    // under the lock its writes take.
    CTraceLock lock;
    TraceAbandonFile(g_trace.pFile);
    g_trace.pFile = nullptr;
    g_trace.dwBytesCounted = 0;
    g_trace.dwSequence = 0;
    g_trace.wLastMonth = 0;
    g_trace.wLastDay = 0;
    t_nIndent = 0;
    t_fAtLineStart = FALSE;
    WriteNoFence(&g_trace.fFileOutputEnabled, TRUE);
    WriteULongNoFence(&g_trace.dwLevel, dwLevel);

    if (dwMaxFileSize == 0)
        g_trace.dwMaxFileSize = MAX_FILE_SIZE_DEFAULT;
    else if (dwMaxFileSize < MAX_FILE_SIZE_MINIMUM)
        g_trace.dwMaxFileSize = MAX_FILE_SIZE_MINIMUM;
    else
        g_trace.dwMaxFileSize = dwMaxFileSize;

    if (pszDirectory && *pszDirectory && pszPrefix && *pszPrefix) {
        CopyString(g_trace.szDirectory, pszDirectory);
        CopyString(g_trace.szPrefix, pszPrefix);
    } else {
        g_trace.szDirectory[0] = 0;
        g_trace.szPrefix[0] = 0;
    }

    if (dwLevel != 0 && HasFileSettings())
        TraceOpenFile(false);
}

void TraceSetLevel(DWORD dwLevel)
{
    CTraceLock lock;
    WriteULongNoFence(&g_trace.dwLevel, dwLevel);
    if (!g_trace.pFile && dwLevel != 0 && HasFileSettings()) {
        TraceOpenFile(false);
    } else if (g_trace.pFile && dwLevel == 0) {
        fclose(g_trace.pFile);
        g_trace.pFile = nullptr;
    }
}

DWORD TraceGetLevel()
{
    return ReadULongNoFence(&g_trace.dwLevel);
}

void TraceW(LPCWSTR pszFormat, ...)
{
    WriteLineStart<WCHAR>(OutputW, wsprintfW, W("[%06d] [%02d/%02d %02d:%02d:%02d %03d] "));
    WCHAR szText[LINE_CCH + 1];
    va_list args;
    va_start(args, pszFormat);
    int cch = wvsprintfW(szText, pszFormat, args);
    va_end(args);
    t_fAtLineStart = cch > 0 && szText[cch - 1] == W('\n');
    OutputW(szText, cch);
}

void TraceA(LPCSTR pszFormat, ...)
{
    WriteLineStart<char>(OutputA, wsprintfA, "[%06d] [%02d/%02d %02d:%02d:%02d %03d] ");
    char szText[LINE_CCH + 1];
    va_list args;
    va_start(args, pszFormat);
    int cch = wvsprintfA(szText, pszFormat, args);
    va_end(args);
    t_fAtLineStart = cch > 0 && szText[cch - 1] == '\n';
    OutputA(szText, cch);
}

void TraceSuspendFile()
{
    WriteNoFence(&g_trace.fFileOutputEnabled, FALSE);
}

void TraceResumeFile()
{
    WriteNoFence(&g_trace.fFileOutputEnabled, TRUE);
}

void TraceClose()
{
    CTraceLock lock;
    if (g_trace.pFile) {
        fclose(g_trace.pFile);
        g_trace.pFile = nullptr;
    }
}

void TraceAssert(LPCSTR pszExpression, LPCSTR pszFile, int nLine, DWORD dwLastError)
{
    TraceA("ASSERT (%s) FAILED [File=\"%s\", Line=%d, LastError=0x%08x]\n", pszExpression, pszFile,
           nLine, dwLastError);
}

CTraceIndent::CTraceIndent()
{
    IndentThread();
}

CTraceIndent::~CTraceIndent()
{
    OutdentThread();
}

CTraceScope::CTraceScope(LPCWSTR pszName) : m_pszName(pszName)
{
    if (TraceIsOn(TRACE_LEVEL_VERBOSE))
        TraceW(W("%s() entered\n"), m_pszName);
    IndentThread();
}

CTraceScope::~CTraceScope()
{
    OutdentThread();
    if (TraceIsOn(TRACE_LEVEL_VERBOSE))
        TraceW(W("%s() exited\n"), m_pszName);
}
