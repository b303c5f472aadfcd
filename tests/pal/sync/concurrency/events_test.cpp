// Events and waits across threads.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/sync/handletable.h"
#include "pal/synchapi.h"
#include "tests/support/paltest.h"

#include <atomic>
#include <thread>
#include <vector>

namespace {

using orvtest::WaitUntil;

class EventThreadsTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        // Threads of other tests in this process may still sleep in waits of their own.
        m_cOtherSleepers = pal::detail::SleepingWaiterCount();
    }

    // True once exactly `cExpected` threads of this test sleep in waits.
    bool SleepingWaitersAre(ULONG cExpected) const
    {
        ULONG cTotal = m_cOtherSleepers + cExpected;
        return WaitUntil([cTotal] { return pal::detail::SleepingWaiterCount() == cTotal; });
    }

private:
    ULONG m_cOtherSleepers = 0;
};

// Threads that each wait once on an event and count themselves released.
class Waiters
{
public:
    Waiters(HANDLE hEvent, int cThreads) : m_hEvent(hEvent)
    {
        for (int i = 0; i < cThreads; ++i) {
            m_threads.push_back(CreateThread(nullptr, 0, &Waiters::Main, this, 0, nullptr));
            EXPECT_NE(nullptr, m_threads.back());
        }
    }
    ~Waiters()
    {
        for (HANDLE h : m_threads) {
            EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, INFINITE));
            CloseHandle(h);
        }
    }
    int Released() const { return m_cReleased.load(); }

private:
    static DWORD WINAPI Main(LPVOID pv)
    {
        auto* self = static_cast<Waiters*>(pv);
        DWORD dwResult = WaitForSingleObject(self->m_hEvent, INFINITE);
        ++self->m_cReleased;
        return dwResult;
    }

    HANDLE m_hEvent;
    std::vector<HANDLE> m_threads;
    std::atomic<int> m_cReleased{0};
};

TEST_F(EventThreadsTest, AutoResetReleasesOneWaiterPerSignalAndManualResetEvery)
{
    constexpr int kWaiters = 4;
    HANDLE hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    {
        Waiters waiters(hEvent, kWaiters);
        for (int k = 1; k <= kWaiters; ++k) {
            ASSERT_TRUE(SleepingWaitersAre(kWaiters - k + 1));
            ASSERT_TRUE(SetEvent(hEvent));
            ASSERT_TRUE(WaitUntil([&] { return waiters.Released() == k; }));
            // The others went back to sleep without getting through.
            ASSERT_TRUE(SleepingWaitersAre(kWaiters - k));
            EXPECT_EQ(k, waiters.Released());
            EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hEvent, 0)) << "signal was consumed";
        }
    }
    CloseHandle(hEvent);

    hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    {
        Waiters waiters(hEvent, kWaiters);
        ASSERT_TRUE(SleepingWaitersAre(kWaiters));
        ASSERT_TRUE(SetEvent(hEvent));
        EXPECT_TRUE(WaitUntil([&] { return waiters.Released() == kWaiters; }));
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hEvent, 0)) << "stays signalled";
    }
    CloseHandle(hEvent);
}

TEST_F(EventThreadsTest, NamedEventsHandOffWorkBetweenThreads)
{
    // Two named auto-reset events hand a counter back and forth between their creator and a
    // thread that opens them by name, many times over; the events alone guard the counter.
    constexpr int kRounds = 200;
    int nCounter = 0;
    HANDLE hPing = CreateEventW(nullptr, FALSE, FALSE, u"PingPong.Ping");
    HANDLE hPong = CreateEventW(nullptr, FALSE, FALSE, u"PingPong.Pong");
    std::thread partner([&nCounter] {
        HANDLE hPing = OpenEventW(SYNCHRONIZE, FALSE, u"PingPong.Ping");
        HANDLE hPong = OpenEventW(EVENT_MODIFY_STATE, FALSE, u"PingPong.Pong");
        ASSERT_NE(nullptr, hPing);
        ASSERT_NE(nullptr, hPong);
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hPing, INFINITE));
            ++nCounter;
            SetEvent(hPong);
        }
        CloseHandle(hPing);
        CloseHandle(hPong);
    });
    for (int i = 0; i < kRounds; ++i) {
        ++nCounter;
        ASSERT_TRUE(SetEvent(hPing));
        ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hPong, INFINITE));
    }
    partner.join();
    EXPECT_EQ(2 * kRounds, nCounter);
    CloseHandle(hPing);
    CloseHandle(hPong);
}

TEST_F(EventThreadsTest, ConcurrentCreatesOfOneNameMakeOneObjectThatAnyThreadUses)
{
    constexpr int kThreads = 8;
    std::atomic<int> cCreated{0};
    std::vector<HANDLE> handles(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            handles[i] = CreateEventW(nullptr, TRUE, FALSE, u"EventThreadsTest.Race");
            if (GetLastError() != ERROR_ALREADY_EXISTS)
                ++cCreated;
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(1, cCreated.load());
    // Handles are process-wide: the threads' handles are used and closed here.
    HANDLE hOpened = OpenEventW(EVENT_MODIFY_STATE, FALSE, u"EventThreadsTest.Race");
    ASSERT_NE(nullptr, hOpened);
    EXPECT_TRUE(SetEvent(hOpened));
    EXPECT_TRUE(CloseHandle(hOpened));
    for (HANDLE h : handles) {
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0));
        EXPECT_TRUE(CloseHandle(h));
    }
    EXPECT_EQ(nullptr, OpenEventW(SYNCHRONIZE, FALSE, u"EventThreadsTest.Race"));
}

TEST_F(EventThreadsTest, WaitAnyWakesForTheObjectSetElsewhere)
{
    HANDLE handles[3];
    for (HANDLE& h : handles)
        h = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::thread setter([this, &handles] {
        SleepingWaitersAre(1);
        SetEvent(handles[2]);
    });
    EXPECT_EQ(WAIT_OBJECT_0 + 2, WaitForMultipleObjects(3, handles, FALSE, INFINITE));
    setter.join();
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(3, handles, FALSE, 0));
    for (HANDLE h : handles)
        CloseHandle(h);
}

TEST_F(EventThreadsTest, WaitAllTakesBothSignalsAtOnce)
{
    HANDLE both[] = {CreateEventW(nullptr, FALSE, FALSE, nullptr),
                     CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    bool fFirstStillSet = false;
    std::thread setter([&] {
        SleepingWaitersAre(1);
        SetEvent(both[0]);
        // One of two is not enough: the all-waiter leaves the first signal where it is.
        SleepingWaitersAre(1);
        fFirstStillSet = WaitForSingleObject(both[0], 0) == WAIT_OBJECT_0;
        SetEvent(both[0]);
        SetEvent(both[1]);
    });
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, both, TRUE, INFINITE));
    setter.join();
    EXPECT_TRUE(fFirstStillSet);
    for (HANDLE h : both) {
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(h, 0));
        CloseHandle(h);
    }
}

} // namespace
