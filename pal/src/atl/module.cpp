// The module lock count of the object helpers.
#include "pal/atlcom.h"

namespace {
LONG volatile g_lModuleLocks = 0;
}

LONG WINAPI AtlModuleLock()
{
    return InterlockedIncrement(&g_lModuleLocks);
}

LONG WINAPI AtlModuleUnlock()
{
    return InterlockedDecrement(&g_lModuleLocks);
}

LONG WINAPI AtlModuleGetLockCount()
{
    return ReadNoFence(&g_lModuleLocks);
}
