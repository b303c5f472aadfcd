// Windows: the service control manager's functions come from the SDK. <windows.h> leaves
// winsvc.h out under WIN32_LEAN_AND_MEAN, so it is included here.
#pragma once

#include "pal/windef.h"

#include <winsvc.h>
