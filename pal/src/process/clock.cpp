// The platform clock: tick count, local time and sleeping, scalable for tests.
#include "pal/src/base/internal.h"
#include "pal/synchapi.h"
#include "pal/sysinfoapi.h"

#include <cstdlib>
#include <ctime>
#include <deque>
#include <mutex>
#include <thread>

namespace {

using Steady = std::chrono::steady_clock;

struct ClockState
{
    DWORD dwScale = 1;
    DWORD dwTickOffset = 0;
    // Platform ms = ullBaseMs + (now - realBase) * dwScale.
    Steady::time_point realBase = Steady::now();
    ULONGLONG ullBaseMs = static_cast<ULONGLONG>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Steady::now().time_since_epoch())
            .count());
    bool fLocalTimeSet = false;
    std::time_t localBaseSeconds = 0; // the set local time, as seconds of a UTC calendar
    ULONGLONG ullLocalBaseMs = 0;     // set time's milliseconds part, plus platform ms then
};

// A process of the machine started with ORVSIM_CLOCK_SCALE runs its platform clock that many
// times faster from the start, as a test's own process does after pal::SetClockScale: a test
// reaches the timing of the services and servers it starts.
ClockState InitialClock()
{
    ClockState clock;
    if (const char* psz = std::getenv("ORVSIM_CLOCK_SCALE")) {
        unsigned long ul = std::strtoul(psz, nullptr, 10);
        if (ul >= 1 && ul <= 1000000)
            clock.dwScale = static_cast<DWORD>(ul);
    }
    return clock;
}

std::mutex g_clockLock;
ClockState g_clock = InitialClock();
thread_local std::deque<DWORD> t_scriptedTicks;

ULONGLONG PlatformMsLocked()
{
    auto realElapsed =
        std::chrono::duration_cast<std::chrono::microseconds>(Steady::now() - g_clock.realBase);
    return g_clock.ullBaseMs + static_cast<ULONGLONG>(realElapsed.count()) * g_clock.dwScale / 1000;
}

void FillSystemTime(const std::tm& tm, WORD ms, SYSTEMTIME* st)
{
    st->wYear = static_cast<WORD>(tm.tm_year + 1900);
    st->wMonth = static_cast<WORD>(tm.tm_mon + 1);
    st->wDayOfWeek = static_cast<WORD>(tm.tm_wday);
    st->wDay = static_cast<WORD>(tm.tm_mday);
    st->wHour = static_cast<WORD>(tm.tm_hour);
    st->wMinute = static_cast<WORD>(tm.tm_min);
    st->wSecond = static_cast<WORD>(tm.tm_sec);
    st->wMilliseconds = ms;
}

} // namespace

namespace pal {

void SetClockScale(DWORD factor)
{
    std::lock_guard lock(g_clockLock);
    g_clock.ullBaseMs = PlatformMsLocked();
    g_clock.realBase = Steady::now();
    g_clock.dwScale = factor == 0 ? 1 : factor;
}

DWORD GetClockScale()
{
    std::lock_guard lock(g_clockLock);
    return g_clock.dwScale;
}

void SetTickCountOffset(DWORD offsetMs)
{
    std::lock_guard lock(g_clockLock);
    g_clock.dwTickOffset = offsetMs;
}

void ScriptTickCounts(const std::vector<DWORD>& values)
{
    t_scriptedTicks.assign(values.begin(), values.end());
}

void SetLocalTimeForTest(const SYSTEMTIME& st)
{
    std::tm tm{};
    tm.tm_year = st.wYear - 1900;
    tm.tm_mon = st.wMonth - 1;
    tm.tm_mday = st.wDay;
    tm.tm_hour = st.wHour;
    tm.tm_min = st.wMinute;
    tm.tm_sec = st.wSecond;
    std::lock_guard lock(g_clockLock);
    g_clock.fLocalTimeSet = true;
    // Calendar arithmetic in UTC keeps the set time free of daylight-saving jumps.
    g_clock.localBaseSeconds = timegm(&tm);
    g_clock.ullLocalBaseMs = PlatformMsLocked() - st.wMilliseconds;
}

void ResetLocalTimeForTest()
{
    std::lock_guard lock(g_clockLock);
    g_clock.fLocalTimeSet = false;
}

} // namespace pal

namespace pal::detail {

ULONGLONG PlatformMilliseconds()
{
    std::lock_guard lock(g_clockLock);
    return PlatformMsLocked();
}

std::chrono::nanoseconds RealDuration(DWORD ms)
{
    DWORD scale = GetClockScale();
    return std::chrono::nanoseconds(static_cast<int64_t>(ms) * 1000000 / scale);
}

} // namespace pal::detail

DWORD WINAPI GetTickCount()
{
    if (!t_scriptedTicks.empty()) {
        DWORD dw = t_scriptedTicks.front();
        t_scriptedTicks.pop_front();
        return dw;
    }
    std::lock_guard lock(g_clockLock);
    return static_cast<DWORD>(PlatformMsLocked() + g_clock.dwTickOffset);
}

ULONGLONG WINAPI GetTickCount64()
{
    std::lock_guard lock(g_clockLock);
    return PlatformMsLocked() + g_clock.dwTickOffset;
}

void WINAPI GetLocalTime(LPSYSTEMTIME lpSystemTime)
{
    std::unique_lock lock(g_clockLock);
    if (g_clock.fLocalTimeSet) {
        ULONGLONG elapsedMs = PlatformMsLocked() - g_clock.ullLocalBaseMs;
        std::time_t seconds = g_clock.localBaseSeconds + static_cast<std::time_t>(elapsedMs / 1000);
        lock.unlock();
        std::tm tm{};
        gmtime_r(&seconds, &tm);
        FillSystemTime(tm, static_cast<WORD>(elapsedMs % 1000), lpSystemTime);
        return;
    }
    lock.unlock();
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    std::tm tm{};
    localtime_r(&ts.tv_sec, &tm);
    FillSystemTime(tm, static_cast<WORD>(ts.tv_nsec / 1000000), lpSystemTime);
}

void WINAPI Sleep(DWORD dwMilliseconds)
{
    if (dwMilliseconds == INFINITE) {
        for (;;)
            std::this_thread::sleep_for(std::chrono::hours(24));
    }
    if (dwMilliseconds == 0) {
        std::this_thread::yield();
        return;
    }
    std::this_thread::sleep_for(pal::detail::RealDuration(dwMilliseconds));
}
