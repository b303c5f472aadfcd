// String helpers of kernel32 and the local heap.
#pragma once

#include "pal/windef.h"

int WINAPI lstrlenW(LPCWSTR lpString);
int WINAPI lstrlenA(LPCSTR lpString);
// Locale-aware, case-sensitive "word sort" comparisons returning -1, 0 or +1. An approximation
// of the Windows default sort (described in pal/src/lstr.cpp): hyphens and apostrophes weigh
// least, punctuation < digits < letters, letters case-insensitive first, then lowercase before
// uppercase; 0 only for identical strings. Character by character, so "10.0" < "3.1".
int WINAPI lstrcmpW(LPCWSTR lpString1, LPCWSTR lpString2);
int WINAPI lstrcmpA(LPCSTR lpString1, LPCSTR lpString2);
int WINAPI lstrcmpiW(LPCWSTR lpString1, LPCWSTR lpString2);
int WINAPI lstrcmpiA(LPCSTR lpString1, LPCSTR lpString2);
LPWSTR WINAPI lstrcpynW(LPWSTR lpString1, LPCWSTR lpString2, int iMaxLength);

using HLOCAL = HANDLE;
#define LMEM_FIXED 0x0000
#define LMEM_ZEROINIT 0x0040
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)

// Fixed blocks only: any other flag than LMEM_ZEROINIT (LMEM_MOVEABLE) fails with
// ERROR_INVALID_PARAMETER.
HLOCAL WINAPI LocalAlloc(UINT uFlags, SIZE_T uBytes);
HLOCAL WINAPI LocalFree(HLOCAL hMem);

// The program's entry, which it defines. On Linux a program with this entry links
// orv_pal_winmain, whose main() records the process in the machine's process table, runs the
// hooks of pal::AddProcessEntryHooks, calls wWinMain as the C runtime does (lpCmdLine is the
// tail of GetCommandLineW() after the program name and the blanks that follow it; nShowCmd is
// SW_SHOWDEFAULT) and records the full 32-bit result as the process's exit code, which
// GetExitCodeProcess reads; the host sees its low byte.
int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE hPrevInstance, LPWSTR lpCmdLine, int nShowCmd);
