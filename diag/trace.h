// The process-wide trace log: every line goes to the debugger output and, while a file is open,
// to a daily, size-limited trace file next to the executable.
#pragma once

#include "pal/guiddef.h"
#include "pal/unknwn.h"
#include "pal/windef.h"

// Trace levels; a line is written when the current level is at least its own.
#define TRACE_LEVEL_ERROR 1
#define TRACE_LEVEL_WARNING 2
#define TRACE_LEVEL_INFO 3
#define TRACE_LEVEL_VERBOSE 4

void TraceInit(DWORD dwLevel, LPCWSTR pszDirectory, LPCWSTR pszPrefix, DWORD dwMaxFileSize);
void TraceSetLevel(DWORD dwLevel);
DWORD TraceGetLevel();

// wsprintfW / wsprintfA conventions, formatted into 1024 characters plus terminator.
void TraceW(LPCWSTR pszFormat, ...);
void TraceA(LPCSTR pszFormat, ...);

void TraceSuspendFile();
void TraceResumeFile();
void TraceClose();

void TraceAssert(LPCSTR pszExpression, LPCSTR pszFile, int nLine, DWORD dwLastError);
// Writes the error information that `pUnk` left on this thread after a failed call through
// the interface `riid`.
void TraceComException(LPCWSTR pszSource, IUnknown* pUnk, REFIID riid);

// Start-up: trace directory from the executable's path, level and file settings from the
// configuration.
void InitializeTraceFromRegistry();

inline bool TraceIsOn(DWORD dwLevel)
{
    return TraceGetLevel() >= dwLevel;
}

// The level test belongs at the call site, so that a filtered line costs one comparison:
//   TRACE(TRACE_LEVEL_ERROR, W("CreateEvent FAILED [dwError=0x%08x]\n"), dwError);
#define TRACE(level, ...)                                                                          \
    do {                                                                                           \
        if (TraceIsOn(level))                                                                      \
            TraceW(__VA_ARGS__);                                                                   \
    } while (0)
#define TRACEA(level, ...)                                                                         \
    do {                                                                                           \
        if (TraceIsOn(level))                                                                      \
            TraceA(__VA_ARGS__);                                                                   \
    } while (0)

// Writes "<name>() entered" / "<name>() exited" at level 4 and indents the thread's lines by 4
// spaces while it lives.
class CTraceScope
{
public:
    explicit CTraceScope(LPCWSTR pszName);
    ~CTraceScope();
    CTraceScope(const CTraceScope&) = delete;
    CTraceScope& operator=(const CTraceScope&) = delete;

private:
    LPCWSTR m_pszName;
};

// One indentation step deeper for the thread's lines while it lives, without the entered and
// exited lines of a scope; for blocks of lines such as record dumps.
class CTraceIndent
{
public:
    CTraceIndent();
    ~CTraceIndent();
    CTraceIndent(const CTraceIndent&) = delete;
    CTraceIndent& operator=(const CTraceIndent&) = delete;
};
