// Windows: the basic types are the SDK's; W() makes a literal of the SDK's WCHAR (wchar_t).
#pragma once

#include <windows.h>

#define PAL_CONCAT_(a, b) a##b
#define W(s) PAL_CONCAT_(L, s)
