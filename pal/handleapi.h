// Closing kernel object handles.
#pragma once

#include "pal/windef.h"

BOOL WINAPI CloseHandle(HANDLE hObject);
