// The calling thread's last error code.
#pragma once

#include "pal/windef.h"

DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD dwErrCode);
