// Everything a Windows program gets from <windows.h>, for the subset this layer offers.
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"
#include "pal/guiddef.h"
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/synchapi.h"
#include "pal/processthreadsapi.h"
#include "pal/interlockedapi.h"
#include "pal/sysinfoapi.h"
#include "pal/libloaderapi.h"
#include "pal/debugapi.h"
#include "pal/fileapi.h"
#include "pal/stringapiset.h"
#include "pal/winbase.h"
#include "pal/winreg.h"
#include "pal/winuser.h"
