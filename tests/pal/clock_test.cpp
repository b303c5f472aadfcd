// Wait timeouts, the tick count and the local time on the scaled clock.
#include "pal/handleapi.h"
#include "pal/synchapi.h"
#include "pal/sysinfoapi.h"
#include "tests/support/paltest.h"

#include <vector>

namespace {

using ClockTest = orvtest::PalTest;

// Scales used below keep every wait at a few real milliseconds; assertions only bound platform
// time from below, or from above with margins of a second or more of real time.
constexpr DWORD kFastClock = 1000;

TEST_F(ClockTest, WaitTimeoutRunsOnTheScaledClock)
{
    HANDLE hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    pal::SetClockScale(kFastClock);
    DWORD dwStart = GetTickCount();
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hEvent, 10000));
    EXPECT_GE(GetTickCount() - dwStart, 10000u);
    CloseHandle(hEvent);
}

TEST_F(ClockTest, MultipleObjectTimeoutsRunOnTheScaledClock)
{
    HANDLE handles[] = {CreateEventW(nullptr, FALSE, FALSE, nullptr),
                        CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    pal::SetClockScale(kFastClock);
    for (BOOL bWaitAll : {FALSE, TRUE}) {
        ResetEvent(handles[1]);
        if (bWaitAll)
            SetEvent(handles[1]); // one of two is not enough
        DWORD dwStart = GetTickCount();
        EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(2, handles, bWaitAll, 5000));
        EXPECT_GE(GetTickCount() - dwStart, 5000u);
    }
    for (HANDLE h : handles)
        CloseHandle(h);
}

TEST_F(ClockTest, SleepRunsOnTheScaledClock)
{
    pal::SetClockScale(kFastClock);
    DWORD dwStart = GetTickCount();
    Sleep(20000);
    EXPECT_GE(GetTickCount() - dwStart, 20000u);
}

TEST_F(ClockTest, TickCountWrapsAndUnsignedDifferenceStillMeasures)
{
    // Place the count 500 ms before the 32-bit wrap, then let 2000 ms pass.
    pal::SetTickCountOffset(0);
    pal::SetTickCountOffset(0xFFFFFFFFu - 500u - GetTickCount());
    DWORD dwBefore = GetTickCount();
    EXPECT_GT(dwBefore, 0xFFFF0000u);
    pal::SetClockScale(100);
    Sleep(2000);
    DWORD dwAfter = GetTickCount();
    EXPECT_LT(dwAfter, dwBefore) << "the count has wrapped";
    DWORD dwElapsed = dwAfter - dwBefore;
    EXPECT_GE(dwElapsed, 2000u);
    EXPECT_LT(dwElapsed, 2000u + 100u * 5000u); // generous: five real seconds of slack
}

struct MidnightCase
{
    const char* szLabel;
    SYSTEMTIME start; // wDayOfWeek is ignored when setting
    WORD wYear, wMonth, wDay, wDayOfWeek;
};

TEST_F(ClockTest, LocalTimeCrossesMidnightDuringAWait)
{
    const MidnightCase cases[] = {
        {"new year", {2023, 12, 0, 31, 23, 59, 59, 900}, 2024, 1, 1, 1},  // Sunday -> Monday
        {"leap day", {2024, 2, 0, 28, 23, 59, 59, 900}, 2024, 2, 29, 4},  // Wednesday -> Thursday
        {"after leap", {2024, 2, 0, 29, 23, 59, 59, 900}, 2024, 3, 1, 5}, // -> Friday
        {"century", {2099, 12, 0, 31, 23, 59, 59, 900}, 2100, 1, 1, 5},   // -> Friday
    };
    HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.szLabel);
        pal::SetClockScale(1);
        pal::SetLocalTimeForTest(c.start);
        SYSTEMTIME before{};
        GetLocalTime(&before);
        EXPECT_EQ(c.start.wYear, before.wYear);
        EXPECT_EQ(c.start.wDay, before.wDay);
        EXPECT_EQ(59, before.wSecond);

        pal::SetClockScale(100);
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hEvent, 1000));
        SYSTEMTIME after{};
        GetLocalTime(&after);
        EXPECT_EQ(c.wYear, after.wYear);
        EXPECT_EQ(c.wMonth, after.wMonth);
        EXPECT_EQ(c.wDay, after.wDay);
        EXPECT_EQ(c.wDayOfWeek, after.wDayOfWeek);
        EXPECT_EQ(0, after.wHour);
        EXPECT_EQ(0, after.wMinute); // under a minute of platform time: 0.6 s real
    }
    CloseHandle(hEvent);
}

} // namespace
