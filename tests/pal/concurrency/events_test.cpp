// Events and waits across threads.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/handletable.h"
#include "pal/synchapi.h"
#include "tests/support/paltest.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

namespace {

// Polls a condition another thread makes true; the deadline only stops a broken test.
bool Eventually(const std::function<bool()>& condition)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

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
        return Eventually([cTotal] { return pal::detail::SleepingWaiterCount() == cTotal; });
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
            HANDLE h = CreateThread(nullptr, 0, &Waiters::Main, this, 0, nullptr);
            EXPECT_NE(nullptr, h);
            m_threads.push_back(h);
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

TEST_F(EventThreadsTest, AutoResetReleasesExactlyOneWaiterPerSignal)
{
    constexpr int kWaiters = 4;
    HANDLE hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    {
        Waiters waiters(hEvent, kWaiters);
        for (int k = 1; k <= kWaiters; ++k) {
            ASSERT_TRUE(SleepingWaitersAre(kWaiters - k + 1));
            ASSERT_TRUE(SetEvent(hEvent));
            ASSERT_TRUE(Eventually([&] { return waiters.Released() == k; }));
            // The others went back to sleep without getting through.
            ASSERT_TRUE(SleepingWaitersAre(kWaiters - k));
            EXPECT_EQ(k, waiters.Released());
            EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hEvent, 0)) << "signal was consumed";
        }
    }
    CloseHandle(hEvent);
}

TEST_F(EventThreadsTest, ManualResetReleasesEveryWaiter)
{
    constexpr int kWaiters = 5;
    HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    {
        Waiters waiters(hEvent, kWaiters);
        ASSERT_TRUE(SleepingWaitersAre(kWaiters));
        ASSERT_TRUE(SetEvent(hEvent));
        EXPECT_TRUE(Eventually([&] { return waiters.Released() == kWaiters; }));
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hEvent, 0)) << "stays signalled";
    }
    ResetEvent(hEvent);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hEvent, 0));
    CloseHandle(hEvent);
}

TEST_F(EventThreadsTest, SignalFromAnotherThreadEndsAnInfiniteWait)
{
    HANDLE hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::thread setter([this, hEvent] {
        SleepingWaitersAre(1);
        SetEvent(hEvent);
    });
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hEvent, INFINITE));
    setter.join();
    CloseHandle(hEvent);
}

// The hand-off of two named auto-reset events between a creator and a thread that opens them
// by name, many times over.
struct PingPong
{
    static constexpr int kRounds = 200;
    std::atomic<int> cOpenFailures{0};
    int nCounter = 0; // handed back and forth, guarded by the events alone

    static DWORD WINAPI Partner(LPVOID pv)
    {
        auto* self = static_cast<PingPong*>(pv);
        HANDLE hPing = OpenEventW(EVENT_ALL_ACCESS, FALSE, u"PingPong.Ping");
        HANDLE hPong = OpenEventW(EVENT_ALL_ACCESS, FALSE, u"PingPong.Pong");
        if (!hPing || !hPong) {
            ++self->cOpenFailures;
            return 1;
        }
        for (int i = 0; i < kRounds; ++i) {
            if (WaitForSingleObject(hPing, INFINITE) != WAIT_OBJECT_0)
                return 2;
            ++self->nCounter;
            SetEvent(hPong);
        }
        CloseHandle(hPing);
        CloseHandle(hPong);
        return 0;
    }
};

TEST_F(EventThreadsTest, NamedEventsHandOffWorkBetweenThreads)
{
    PingPong state;
    HANDLE hPing = CreateEventW(nullptr, FALSE, FALSE, u"PingPong.Ping");
    HANDLE hPong = CreateEventW(nullptr, FALSE, FALSE, u"PingPong.Pong");
    HANDLE hThread = CreateThread(nullptr, 0, &PingPong::Partner, &state, 0, nullptr);
    ASSERT_NE(nullptr, hThread);
    for (int i = 0; i < PingPong::kRounds; ++i) {
        ++state.nCounter;
        ASSERT_TRUE(SetEvent(hPing));
        ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hPong, INFINITE));
    }
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hThread, INFINITE));
    DWORD dwExit = 99;
    EXPECT_TRUE(GetExitCodeThread(hThread, &dwExit));
    EXPECT_EQ(0u, dwExit);
    EXPECT_EQ(2 * PingPong::kRounds, state.nCounter);
    for (HANDLE h : {hThread, hPing, hPong})
        CloseHandle(h);
}

TEST_F(EventThreadsTest, EventCreatedOnAnotherThreadIsOpenedHere)
{
    HANDLE hCreated = nullptr;
    DWORD dwCreateError = 0;
    std::thread creator([&] {
        SetLastError(0xDEADBEEF);
        hCreated = CreateEventW(nullptr, TRUE, TRUE, u"EventThreadsTest.FromThread");
        dwCreateError = GetLastError();
    });
    creator.join();
    ASSERT_NE(nullptr, hCreated);
    EXPECT_WIN32(ERROR_SUCCESS, dwCreateError);

    HANDLE hOpened = OpenEventW(SYNCHRONIZE, FALSE, u"EventThreadsTest.FromThread");
    ASSERT_NE(nullptr, hOpened);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hOpened, 0));
    SetLastError(0xDEADBEEF);
    HANDLE hAgain = CreateEventW(nullptr, FALSE, FALSE, u"EventThreadsTest.FromThread");
    EXPECT_WIN32(ERROR_ALREADY_EXISTS, GetLastError());

    // Handles are process-wide: the thread's handle is closed here.
    for (HANDLE h : {hCreated, hOpened, hAgain})
        EXPECT_TRUE(CloseHandle(h));
    EXPECT_EQ(nullptr, OpenEventW(SYNCHRONIZE, FALSE, u"EventThreadsTest.FromThread"));
}

TEST_F(EventThreadsTest, ConcurrentCreatesOfOneNameMakeOneObject)
{
    constexpr int kThreads = 8;
    std::atomic<int> cCreated{0};
    std::atomic<int> cExisting{0};
    std::vector<HANDLE> handles(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            handles[i] = CreateEventW(nullptr, TRUE, FALSE, u"EventThreadsTest.Race");
            (GetLastError() == ERROR_ALREADY_EXISTS ? cExisting : cCreated)++;
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(1, cCreated.load());
    EXPECT_EQ(kThreads - 1, cExisting.load());
    SetEvent(handles[0]);
    for (HANDLE h : handles) {
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0));
        CloseHandle(h);
    }
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
    HANDLE hFirst = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE hSecond = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE both[] = {hFirst, hSecond};
    bool fFirstStillSet = false;
    std::thread setter([&] {
        SleepingWaitersAre(1);
        SetEvent(hFirst);
        // One of two is not enough: the all-waiter leaves the first signal where it is.
        SleepingWaitersAre(1);
        fFirstStillSet = WaitForSingleObject(hFirst, 0) == WAIT_OBJECT_0;
        SetEvent(hFirst);
        SetEvent(hSecond);
    });
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, both, TRUE, INFINITE));
    setter.join();
    EXPECT_TRUE(fFirstStillSet);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hFirst, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hSecond, 0));
    CloseHandle(hFirst);
    CloseHandle(hSecond);
}

} // namespace
