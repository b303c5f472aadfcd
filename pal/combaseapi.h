// The COM task allocator and GUID creation.
#pragma once

#include "pal/guiddef.h"
#include "pal/windef.h"

LPVOID WINAPI CoTaskMemAlloc(SIZE_T cb);
LPVOID WINAPI CoTaskMemRealloc(LPVOID pv, SIZE_T cb);
void WINAPI CoTaskMemFree(LPVOID pv);

HRESULT WINAPI CoCreateGuid(GUID* pguid);
