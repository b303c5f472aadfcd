// The string conversions and copies of the whole system. Every result is a new block of the
// COM task allocator that the caller owns and frees with CoTaskMemFree; a failure is reported
// only by a null result, and each caller decides what it means.
#pragma once

#include "pal/windef.h"

// ANSI (system code page) to UTF-16. A null input converts like the empty string.
LPWSTR AnsiToUnicode(LPCSTR pszAnsi);

// UTF-16 to ANSI (system code page). A null input is a failure.
LPSTR UnicodeToAnsi(LPCWSTR pszUnicode);

// A copy of a UTF-16 string. A null input is copied as the empty string, so null means only
// that the allocation failed.
LPWSTR DuplicateString(LPCWSTR pszSource);
