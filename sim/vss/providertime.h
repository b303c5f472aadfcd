// The time VSS's calls spend in the provider's process, added to a process-wide count, so that a
// benchmark can tell the share of a set's time that the provider takes.
#pragma once

#include "pal/windef.h"

#include <chrono>

namespace vsssim::detail {

// Nanoseconds spent in calls to providers by this process so far.
LONGLONG ProviderCallNs();

// Adds the time from its construction to its end to the count.
class CProviderCallTimer
{
public:
    CProviderCallTimer() : m_start(std::chrono::steady_clock::now()) {}
    CProviderCallTimer(const CProviderCallTimer&) = delete;
    CProviderCallTimer& operator=(const CProviderCallTimer&) = delete;
    ~CProviderCallTimer();

private:
    std::chrono::steady_clock::time_point m_start;
};

} // namespace vsssim::detail
