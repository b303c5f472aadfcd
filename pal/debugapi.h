// Debugger output.
#pragma once

#include "pal/windef.h"

void WINAPI OutputDebugStringW(LPCWSTR lpOutputString);
void WINAPI OutputDebugStringA(LPCSTR lpOutputString);
BOOL WINAPI IsDebuggerPresent();
