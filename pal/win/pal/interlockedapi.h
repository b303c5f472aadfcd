// Windows: the Interlocked functions come from the SDK. mingw-w64 lacks the plain 32-bit loads
// and stores of the newer SDKs (ReadNoFence and the others), which are defined here as those
// SDKs define them: relaxed atomic accesses.
#pragma once

#include "pal/windef.h"

#ifndef ReadNoFence
inline LONG ReadNoFence(LONG const volatile* p)
{
    return __atomic_load_n(p, __ATOMIC_RELAXED);
}
inline void WriteNoFence(LONG volatile* p, LONG value)
{
    __atomic_store_n(p, value, __ATOMIC_RELAXED);
}
inline DWORD ReadULongNoFence(DWORD const volatile* p)
{
    return __atomic_load_n(p, __ATOMIC_RELAXED);
}
inline void WriteULongNoFence(DWORD volatile* p, DWORD value)
{
    __atomic_store_n(p, value, __ATOMIC_RELAXED);
}
#endif
