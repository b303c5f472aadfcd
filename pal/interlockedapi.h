// Atomic operations on 32-bit values and pointers; each is a full barrier, as on Windows.
#pragma once

#include "pal/windef.h"

inline LONG InterlockedIncrement(LONG volatile* p)
{
    return __atomic_add_fetch(p, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(LONG volatile* p)
{
    return __atomic_sub_fetch(p, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchange(LONG volatile* p, LONG value)
{
    return __atomic_exchange_n(p, value, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchangeAdd(LONG volatile* p, LONG value)
{
    return __atomic_fetch_add(p, value, __ATOMIC_SEQ_CST);
}
// Stores `exchange` when *p equals `comparand`; returns the previous value either way.
inline LONG InterlockedCompareExchange(LONG volatile* p, LONG exchange, LONG comparand)
{
    __atomic_compare_exchange_n(p, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return comparand;
}
inline PVOID InterlockedExchangePointer(PVOID volatile* p, PVOID value)
{
    return __atomic_exchange_n(p, value, __ATOMIC_SEQ_CST);
}
inline PVOID InterlockedCompareExchangePointer(PVOID volatile* p, PVOID exchange, PVOID comparand)
{
    __atomic_compare_exchange_n(p, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return comparand;
}

// Plain 32-bit loads and stores that other threads may race with (values read without a lock).
inline LONG ReadNoFence(LONG const volatile* p) { return __atomic_load_n(p, __ATOMIC_RELAXED); }
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
