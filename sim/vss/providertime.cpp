#include "providertime.h"

#include <atomic>

namespace vsssim::detail {

namespace {

std::atomic<LONGLONG> g_llProviderNs{0};

} // namespace

LONGLONG ProviderCallNs()
{
    return g_llProviderNs.load(std::memory_order_relaxed);
}

CProviderCallTimer::~CProviderCallTimer()
{
    g_llProviderNs.fetch_add(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                 std::chrono::steady_clock::now() - m_start)
                                 .count(),
                             std::memory_order_relaxed);
}

} // namespace vsssim::detail
