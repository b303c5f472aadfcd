// Command line splitting.
#pragma once

#include "pal/windef.h"

// Returns one LocalAlloc block holding the argument pointers and the strings; free it with
// LocalFree.
LPWSTR* WINAPI CommandLineToArgvW(LPCWSTR lpCmdLine, int* pNumArgs);
