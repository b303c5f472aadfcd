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
