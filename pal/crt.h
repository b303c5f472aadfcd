// The C runtime's wide-string and stream functions as the system uses them, for UTF-16.
#pragma once

#include "pal/windef.h"

#include <cstdio>

size_t wcslen(const WCHAR* s);
int wcscmp(const WCHAR* a, const WCHAR* b);
int wcsncmp(const WCHAR* a, const WCHAR* b, size_t count);
// Case-insensitive for ASCII letters, as the C locale does.
int _wcsicmp(const WCHAR* a, const WCHAR* b);
int _wcsnicmp(const WCHAR* a, const WCHAR* b, size_t count);
WCHAR* wcsrchr(WCHAR* s, WCHAR c);
const WCHAR* wcsrchr(const WCHAR* s, WCHAR c);
WCHAR* wcschr(WCHAR* s, WCHAR c);
const WCHAR* wcschr(const WCHAR* s, WCHAR c);

// Opens a stream with the runtime's modes ("r", "w", "a", "r+", "w+", "a+", with "b" or "t").
// Text mode (the default) writes every "\n" as "\r\n". Returns nullptr and sets errno and the
// last error on failure.
FILE* _wfopen(const WCHAR* filename, const WCHAR* mode);
// Writes wide text converted to the ANSI code page; returns a non-negative value or EOF.
int fputws(const WCHAR* str, FILE* stream);
