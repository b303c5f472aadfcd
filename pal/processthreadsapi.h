// Threads, the process and its command line, and the processes of the machine.
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

#define PROCESS_TERMINATE 0x0001
#define PROCESS_QUERY_INFORMATION 0x0400
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000
#define PROCESS_ALL_ACCESS 0x001FFFFFL

// The processes of the emulated machine: those started through the Windows entry
// (pal/src/process/winmain.cpp, which records each in <machine root>/processes.db with its full
// 32-bit exit code) and any live process of the host. As on Windows:
//  - OpenProcess fails with ERROR_INVALID_PARAMETER for an id that names no process; the
//    handle carries the rights asked for (generic rights and MAXIMUM_ALLOWED mapped as Windows
//    maps them for processes; PROCESS_QUERY_INFORMATION brings PROCESS_QUERY_LIMITED_INFORMATION)
//    and is closed with CloseHandle. bInheritHandle is ignored (nothing is inherited).
//  - GetExitCodeProcess needs PROCESS_QUERY_LIMITED_INFORMATION (ERROR_ACCESS_DENIED otherwise)
//    and answers STILL_ACTIVE while the process runs, then the code its wWinMain returned or it
//    passed to ExitProcess; a handle of another kind fails with ERROR_INVALID_HANDLE.
//  - WaitForSingleObject on a process handle (SYNCHRONIZE) is signalled once the process has
//    ended.
// Where the machine differs:
//  - An ended process of the table stays open to OpenProcess by its id, as if the table held a
//    handle to it, while its row is kept (the newest 4096) and no new process has the id.
//  - A process that ended without recording a code (killed by a signal, or not started through
//    the entry) shows exit code 1, what a forced end (taskkill /F, TerminateProcess(h, 1))
//    leaves on Windows.
//  - Every account may open every process with any rights.
HANDLE WINAPI GetCurrentProcess();
HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId);
BOOL WINAPI GetExitCodeProcess(HANDLE hProcess, LPDWORD lpExitCode);
// Runs the entry's exit hooks, records uExitCode as the process's exit code and ends the process
// at once, its other threads with it; the host sees the low byte.
[[noreturn]] void WINAPI ExitProcess(UINT uExitCode);
