// Threads, the process and its command line.
#pragma once

#include "pal/windef.h"

using LPTHREAD_START_ROUTINE = DWORD(WINAPI*)(LPVOID lpThreadParameter);

#define STILL_ACTIVE 259L
#define CREATE_SUSPENDED 0x00000004

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, SIZE_T dwStackSize,
                           LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter,
                           DWORD dwCreationFlags, LPDWORD lpThreadId);
BOOL WINAPI GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode);
DWORD WINAPI ResumeThread(HANDLE hThread);
DWORD WINAPI GetCurrentThreadId();
DWORD WINAPI GetCurrentProcessId();

LPWSTR WINAPI GetCommandLineW();
