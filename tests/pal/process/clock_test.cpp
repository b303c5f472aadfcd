// Sleeps, wait timeouts, the tick count and the local time on the scaled clock.
#include "pal/handleapi.h"
#include "pal/synchapi.h"
#include "pal/sysinfoapi.h"
#include "tests/support/paltest.h"

#include <thread>

namespace {

using ClockTest = orvtest::PalTest;

// At 1000x every wait below takes a few real milliseconds; only lower bounds are asserted.
TEST_F(ClockTest, SleepsAndWaitTimeoutsRunOnTheScaledClock)
{
    HANDLE handles[] = {CreateEventW(nullptr, FALSE, FALSE, nullptr),
                        CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    pal::SetClockScale(1000);
    DWORD dwStart = GetTickCount();
    Sleep(20000);
    EXPECT_GE(GetTickCount() - dwStart, 20000u);

    dwStart = GetTickCount();
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(handles[0], 10000));
    EXPECT_GE(GetTickCount() - dwStart, 10000u);

    for (BOOL bWaitAll : {FALSE, TRUE}) {
        ResetEvent(handles[1]);
        if (bWaitAll)
            SetEvent(handles[1]); // one of two is not enough
        dwStart = GetTickCount();
        EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(2, handles, bWaitAll, 5000));
        EXPECT_GE(GetTickCount() - dwStart, 5000u);
    }
    for (HANDLE h : handles)
        CloseHandle(h);
}

TEST_F(ClockTest, TickCountWrapsAndUnsignedDifferenceStillMeasures)
{
    // 500 ms before the 32-bit wrap, then 2000 ms pass.
    pal::SetTickCountOffset(0);
    pal::SetTickCountOffset(0xFFFFFFFFu - 500u - GetTickCount());
    DWORD dwBefore = GetTickCount();
    EXPECT_GT(dwBefore, 0xFFFF0000u);
    pal::SetClockScale(100);
    Sleep(2000);
    DWORD dwAfter = GetTickCount();
    EXPECT_LT(dwAfter, dwBefore) << "the count has wrapped";
    EXPECT_GE(dwAfter - dwBefore, 2000u);
    EXPECT_LT(dwAfter - dwBefore, 2000u + 100u * 5000u); // five real seconds of slack
}

// Scripted tick counts answer the calling thread only, once each, then the clock again.
TEST_F(ClockTest, ScriptedTickCountsAnswerTheirThreadOnce)
{
    pal::ScriptTickCounts({7, 0xFFFFFFF0});
    DWORD dwOther = 0;
    std::thread([&] { dwOther = GetTickCount(); }).join();
    EXPECT_NE(7u, dwOther);
    EXPECT_EQ(7u, GetTickCount());
    EXPECT_EQ(0xFFFFFFF0u, GetTickCount());
    EXPECT_NE(0xFFFFFFF0u, GetTickCount());
}

TEST_F(ClockTest, LocalTimeCrossesMidnightDuringAWait)
{
    struct
    {
        SYSTEMTIME start; // wDayOfWeek is ignored when setting
        WORD wYear, wMonth, wDay, wDayOfWeek;
    } const cases[] = {
        {{2023, 12, 0, 31, 23, 59, 59, 900}, 2024, 1, 1, 1}, // new year, Sunday -> Monday
        {{2024, 2, 0, 28, 23, 59, 59, 900}, 2024, 2, 29, 4}, // leap day, -> Thursday
        {{2024, 2, 0, 29, 23, 59, 59, 900}, 2024, 3, 1, 5},  // after it, -> Friday
        {{2099, 12, 0, 31, 23, 59, 59, 900}, 2100, 1, 1, 5}, // century, -> Friday
    };
    HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.wYear * 10000 + c.wMonth * 100 + c.wDay);
        pal::SetClockScale(1);
        pal::SetLocalTimeForTest(c.start);
        SYSTEMTIME st{};
        GetLocalTime(&st);
        EXPECT_EQ(c.start.wYear, st.wYear);
        EXPECT_EQ(c.start.wDay, st.wDay);
        EXPECT_EQ(59, st.wSecond);

        pal::SetClockScale(100);
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hEvent, 1000));
        GetLocalTime(&st);
        EXPECT_EQ(c.wYear, st.wYear);
        EXPECT_EQ(c.wMonth, st.wMonth);
        EXPECT_EQ(c.wDay, st.wDay);
        EXPECT_EQ(c.wDayOfWeek, st.wDayOfWeek);
        EXPECT_EQ(0, st.wHour);
        EXPECT_EQ(0, st.wMinute); // under a minute of platform time: 0.6 s real
    }
    CloseHandle(hEvent);
}

} // namespace
