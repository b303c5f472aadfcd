#include "pal/errhandlingapi.h"

namespace {
thread_local DWORD t_dwLastError = 0;
}

DWORD WINAPI GetLastError()
{
    return t_dwLastError;
}

void WINAPI SetLastError(DWORD dwErrCode)
{
    t_dwLastError = dwErrCode;
}
