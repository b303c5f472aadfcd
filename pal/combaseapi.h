// The COM task allocator, GUID creation and the access rights of COM servers.
#pragma once

#include "pal/guiddef.h"
#include "pal/windef.h"

LPVOID WINAPI CoTaskMemAlloc(SIZE_T cb);
LPVOID WINAPI CoTaskMemRealloc(LPVOID pv, SIZE_T cb);
void WINAPI CoTaskMemFree(LPVOID pv);

HRESULT WINAPI CoCreateGuid(GUID* pguid);

// The rights an access list of a COM server allows or denies (IAccessControl); the runtime's own
// access control object knows COM_RIGHTS_EXECUTE only, the right to call the server.
#define COM_RIGHTS_EXECUTE 1
#define COM_RIGHTS_EXECUTE_LOCAL 2
#define COM_RIGHTS_EXECUTE_REMOTE 4
#define COM_RIGHTS_ACTIVATE_LOCAL 8
#define COM_RIGHTS_ACTIVATE_REMOTE 16
