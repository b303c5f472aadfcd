// What the process's last shadow copy set measured, kept for benchmarks and tests.
#include "vsssim.h"
#include "writehold.h"

#include <mutex>

namespace vsssim {

namespace {

std::mutex g_lock;
SetMeasures g_last = {};

} // namespace

namespace detail {

void RecordHold(ULONGLONG ullHeldTick, ULONGLONG ullReleasedTick, LONGLONG llHoldNs)
{
    std::lock_guard<std::mutex> lock(g_lock);
    g_last.ullHeldTick = ullHeldTick;
    g_last.ullReleasedTick = ullReleasedTick;
    g_last.llHoldNs = llHoldNs;
}

void RecordSet(LONGLONG llSetNs, LONGLONG llProviderNs)
{
    std::lock_guard<std::mutex> lock(g_lock);
    g_last.llSetNs = llSetNs;
    g_last.llProviderNs = llProviderNs;
}

} // namespace detail

SetMeasures LastSetMeasures()
{
    std::lock_guard<std::mutex> lock(g_lock);
    return g_last;
}

} // namespace vsssim
