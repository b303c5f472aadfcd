// The trace log's shared state; for the trace implementation files and their tests.
#pragma once

#include "pal/synchapi.h"
#include "pal/windef.h"

#include <cstdio>

// Large enough for anything wsprintfW can produce.
constexpr int TRACE_PATH_CCH = 1025;

struct TRACE_STATE
{
    DWORD dwLevel = TRACE_DEFAULT_LEVEL;
    LONG fFileOutputEnabled = TRUE;
    FILE* pFile = nullptr;
    DWORD dwBytesCounted = 0;
    DWORD dwMaxFileSize = 0;
    DWORD dwSequence = 0;
    WORD wLastMonth = 0;
    WORD wLastDay = 0;
    WCHAR szDirectory[MAX_PATH] = {};
    WCHAR szPrefix[MAX_PATH] = {};

    static constexpr DWORD TRACE_DEFAULT_LEVEL = 4;
};

// Guarded by the trace lock where the log says so.
extern TRACE_STATE g_trace;
// Serialises file writes, rollovers, level changes and closing.
extern CRITICAL_SECTION g_traceLock;

// Opens the trace file: the first open continues today's newest file ("a+"), a rollover starts
// the next one ("w+"). Called under the trace lock.
void TraceOpenFile(bool fRollover);
// Today's highest file number; sets the bytes counted to that file's size.
DWORD TraceFindHighestSequence(WORD wMonth, WORD wDay);
// Builds directory + prefix + MMDDnnnn + ".log".
void TraceBuildFileName(WCHAR (&szPath)[TRACE_PATH_CCH], WORD wMonth, WORD wDay, DWORD dwSequence);
// TraceInit forgets an open stream without closing it (the runtime closes it at exit); keeping
// it here keeps it reachable.
struct TRACE_ABANDONED_FILES
{
    FILE* rgFiles[64] = {};
    int cFiles = 0;
};
extern TRACE_ABANDONED_FILES g_traceAbandoned;

// Sends a forgotten stream to a list that keeps it open (TraceInit forgets without closing).
void TraceAbandonFile(FILE* pFile);
