// Critical sections, events, waits and sleeping.
#pragma once

#include "pal/windef.h"

// Opaque storage for a recursive lock; the fields of the Windows structure are not used.
struct CRITICAL_SECTION
{
    alignas(8) BYTE opaque[40];
};
using LPCRITICAL_SECTION = CRITICAL_SECTION*;
static_assert(sizeof(CRITICAL_SECTION) == 40);

void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
// FALSE with the last error only when pal::InjectFault("InitializeCriticalSectionAndSpinCount",
// ...) makes it fail (the section is then not initialised), as older Windows could when short of
// memory.
BOOL WINAPI InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION lpCriticalSection,
                                                  DWORD dwSpinCount);
void WINAPI EnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
BOOL WINAPI TryEnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION lpCriticalSection);

#define SYNCHRONIZE 0x00100000L
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#define EVENT_MODIFY_STATE 0x0002
#define EVENT_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0x3)

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                           BOOL bInitialState, LPCWSTR lpName);
HANDLE WINAPI OpenEventW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName);
BOOL WINAPI SetEvent(HANDLE hEvent);
BOOL WINAPI ResetEvent(HANDLE hEvent);

#define STATUS_WAIT_0 0x00000000L
#define WAIT_OBJECT_0 (STATUS_WAIT_0 + 0)
#define WAIT_ABANDONED 0x00000080L
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64
// WAIT_TIMEOUT (258) is declared with the error codes.

DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
DWORD WINAPI WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll,
                                    DWORD dwMilliseconds);

void WINAPI Sleep(DWORD dwMilliseconds);
