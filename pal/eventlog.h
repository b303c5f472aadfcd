// Event logging of advapi32: event sources and reports, as winbase.h declares them.
//
// Every report is kept in the machine root (see docs/ARCHITECTURE.md, "Event log"), where the
// reports of every thread and process that share the root are all kept, newest last.
// Differences from Windows, where it cannot be reproduced or does not matter here:
//  - RegisterEventSourceW accepts only the local computer: a null or empty server name, or the
//    computer's own name with or without a leading "\\". Any other server fails with
//    RPC_S_SERVER_UNAVAILABLE, as an unreachable one does on Windows. A source needs no
//    registry entry (Windows also accepts unknown sources); a null or empty name fails with
//    ERROR_INVALID_PARAMETER.
//  - An event source handle is not a kernel handle: CloseHandle refuses it, and a closed,
//    forged or null handle fails with ERROR_INVALID_HANDLE.
//  - ReportEventW checks its arguments before anything is written: an unknown wType, a string
//    of more than 31839 characters, or a count of strings (or bytes) with a null array fail
//    with ERROR_INVALID_PARAMETER (Windows would fault on the null array); more than 61440
//    bytes of data fail with RPC_S_INVALID_BOUND; a user SID that is not well formed fails
//    with ERROR_INVALID_SID. A null entry in lpStrings is kept as an empty string.
#pragma once

#include "pal/windef.h"

using PSID = PVOID;

#define EVENTLOG_SUCCESS 0x0000
#define EVENTLOG_ERROR_TYPE 0x0001
#define EVENTLOG_WARNING_TYPE 0x0002
#define EVENTLOG_INFORMATION_TYPE 0x0004
#define EVENTLOG_AUDIT_SUCCESS 0x0008
#define EVENTLOG_AUDIT_FAILURE 0x0010

#ifndef ERROR_INVALID_SID
#define ERROR_INVALID_SID 1337L
#endif
#ifndef RPC_S_INVALID_BOUND
#define RPC_S_INVALID_BOUND 1734L
#endif

// Null with the last error set on failure. Fault hook "RegisterEventSourceW", matched on the
// source name.
HANDLE WINAPI RegisterEventSourceW(LPCWSTR lpUNCServerName, LPCWSTR lpSourceName);

// FALSE with the last error set on failure. Fault hook "ReportEventW", matched on the name of
// the handle's source.
BOOL WINAPI ReportEventW(HANDLE hEventLog, WORD wType, WORD wCategory, DWORD dwEventID,
                         PSID lpUserSid, WORD wNumStrings, DWORD dwDataSize, LPCWSTR* lpStrings,
                         LPVOID lpRawData);

// FALSE with ERROR_INVALID_HANDLE for a handle that is not open. Fault hook
// "DeregisterEventSource".
BOOL WINAPI DeregisterEventSource(HANDLE hEventLog);
