// Threads, their handles and ids, and critical sections shared between threads.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/handletable.h"
#include "pal/synchapi.h"
#include "tests/support/paltest.h"

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace {

using ThreadTest = orvtest::PalTest;
using CriticalSectionThreadsTest = orvtest::PalTest;

DWORD WINAPI ReturnParameter(LPVOID pv)
{
    return static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(pv));
}

HANDLE StartThread(LPTHREAD_START_ROUTINE pfn, LPVOID pv, DWORD dwFlags = 0,
                   LPDWORD pdwId = nullptr)
{
    return CreateThread(nullptr, 0, pfn, pv, dwFlags, pdwId);
}

DWORD FinishAndGetExitCode(HANDLE hThread)
{
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hThread, INFINITE));
    DWORD dwCode = 0xDEADBEEF;
    EXPECT_TRUE(GetExitCodeThread(hThread, &dwCode));
    EXPECT_TRUE(CloseHandle(hThread));
    return dwCode;
}

TEST_F(ThreadTest, ExitCodeIsTheReturnValue)
{
    for (DWORD dwCode : {0u, 1u, 42u, 0x80070005u, 0xFFFFFFFFu}) {
        SetLastError(0xDEADBEEF);
        HANDLE h = StartThread(&ReturnParameter, reinterpret_cast<LPVOID>(ULONG_PTR(dwCode)));
        ASSERT_NE(nullptr, h);
        EXPECT_EQ(dwCode, FinishAndGetExitCode(h));
    }
}

struct Gate
{
    HANDLE hGo = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> dwSeenId{0};
    std::atomic<int> cRuns{0};
    ~Gate() { CloseHandle(hGo); }

    static DWORD WINAPI Main(LPVOID pv)
    {
        auto* self = static_cast<Gate*>(pv);
        self->dwSeenId = GetCurrentThreadId();
        ++self->cRuns;
        WaitForSingleObject(self->hGo, INFINITE);
        return 7;
    }
};

TEST_F(ThreadTest, RunningThreadIsStillActiveAndItsHandleUnsignalled)
{
    Gate gate;
    DWORD dwId = 0;
    HANDLE h = StartThread(&Gate::Main, &gate, 0, &dwId);
    ASSERT_NE(nullptr, h);
    DWORD dwCode = 0;
    EXPECT_TRUE(GetExitCodeThread(h, &dwCode));
    EXPECT_EQ(DWORD(STILL_ACTIVE), dwCode);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(h, 0));
    SetEvent(gate.hGo);
    EXPECT_EQ(7u, FinishAndGetExitCode(h));
    EXPECT_EQ(dwId, gate.dwSeenId.load());
}

TEST_F(ThreadTest, FinishedThreadHandleReleasesEveryWaiter)
{
    HANDLE h = StartThread(&ReturnParameter, nullptr);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, INFINITE));
    // A thread handle stays signalled: waiting does not consume anything.
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0));
    HANDLE twice[] = {h, h};
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, twice, FALSE, 0));
    CloseHandle(h);
}

TEST_F(ThreadTest, SuspendedThreadRunsOnlyWhenResumed)
{
    Gate gate;
    SetEvent(gate.hGo);
    DWORD dwId = 0;
    HANDLE h = StartThread(&Gate::Main, &gate, CREATE_SUSPENDED, &dwId);
    ASSERT_NE(nullptr, h);
    EXPECT_NE(0u, dwId);
    pal::SetClockScale(1000);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(h, 5000));
    EXPECT_EQ(0, gate.cRuns.load());
    DWORD dwCode = 0;
    EXPECT_TRUE(GetExitCodeThread(h, &dwCode));
    EXPECT_EQ(DWORD(STILL_ACTIVE), dwCode);

    EXPECT_EQ(1u, ResumeThread(h));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, INFINITE));
    EXPECT_EQ(1, gate.cRuns.load());
    EXPECT_EQ(dwId, gate.dwSeenId.load());
    EXPECT_EQ(0u, ResumeThread(h)); // not suspended any more
    EXPECT_EQ(7u, FinishAndGetExitCode(h));
}

TEST_F(ThreadTest, ClosingTheHandleDoesNotStopTheThread)
{
    struct Work
    {
        HANDLE hGo = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        HANDLE hDone = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        int nResult = 0;
    } work;
    HANDLE h = StartThread(
        [](LPVOID pv) -> DWORD {
            auto* w = static_cast<Work*>(pv);
            WaitForSingleObject(w->hGo, INFINITE);
            w->nResult = 42;
            SetEvent(w->hDone);
            return 0;
        },
        &work);
    ASSERT_NE(nullptr, h);
    EXPECT_TRUE(CloseHandle(h));
    SetEvent(work.hGo);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(work.hDone, INFINITE));
    EXPECT_EQ(42, work.nResult);
    CloseHandle(work.hGo);
    CloseHandle(work.hDone);
}

TEST_F(ThreadTest, LiveThreadsHaveDistinctIds)
{
    constexpr int kThreads = 8;
    struct Shared
    {
        HANDLE hRelease = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        DWORD ids[kThreads] = {};
        std::atomic<int> cStarted{0};
        std::atomic<int> nextSlot{0};
    } shared;
    std::vector<HANDLE> threads;
    std::vector<DWORD> reported(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.push_back(StartThread(
            [](LPVOID pv) -> DWORD {
                auto* s = static_cast<Shared*>(pv);
                DWORD dwId = GetCurrentThreadId();
                s->ids[s->nextSlot++] = dwId;
                ++s->cStarted;
                WaitForSingleObject(s->hRelease, INFINITE);
                return GetCurrentThreadId() == dwId ? 0 : 1; // stable for the thread's life
            },
            &shared, 0, &reported[i]));
    }
    // A thread this layer did not start gets an id on first use too.
    DWORD dwForeign = 0;
    std::thread foreign([&dwForeign] { dwForeign = GetCurrentThreadId(); });
    foreign.join();

    while (shared.cStarted.load() < kThreads)
        std::this_thread::yield();
    std::set<DWORD> ids(shared.ids, shared.ids + kThreads);
    ids.insert(GetCurrentThreadId());
    ids.insert(dwForeign);
    EXPECT_EQ(size_t(kThreads + 2), ids.size());
    EXPECT_EQ(0u, ids.count(0));
    EXPECT_EQ((std::set<DWORD>(shared.ids, shared.ids + kThreads)),
              (std::set<DWORD>(reported.begin(), reported.end())));

    SetEvent(shared.hRelease);
    for (HANDLE h : threads)
        EXPECT_EQ(0u, FinishAndGetExitCode(h));
    CloseHandle(shared.hRelease);
}

TEST_F(ThreadTest, ThreadHandleIsNotAnEvent)
{
    HANDLE h = StartThread(&ReturnParameter, nullptr);
    SetLastError(0xDEADBEEF);
    EXPECT_FALSE(SetEvent(h));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    SetLastError(0xDEADBEEF);
    EXPECT_FALSE(ResetEvent(h));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    EXPECT_EQ(0u, FinishAndGetExitCode(h));
    SetLastError(0xDEADBEEF);
    EXPECT_FALSE(CloseHandle(h));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
}

TEST_F(ThreadTest, NewThreadStartsWithLastErrorZero)
{
    SetLastError(ERROR_ACCESS_DENIED);
    HANDLE h = StartThread([](LPVOID) -> DWORD { return GetLastError(); }, nullptr);
    EXPECT_EQ(0u, FinishAndGetExitCode(h));
}

// ---- Critical sections across threads ----

CRITICAL_SECTION g_sharedLock;
struct SharedLockInit
{
    SharedLockInit() { InitializeCriticalSection(&g_sharedLock); }
} g_sharedLockInit;

DWORD WINAPI TryEnterShared(LPVOID pv)
{
    auto* pcs = static_cast<LPCRITICAL_SECTION>(pv);
    if (!TryEnterCriticalSection(pcs))
        return 0;
    LeaveCriticalSection(pcs);
    return 1;
}

TEST_F(CriticalSectionThreadsTest, TryEnterFailsWhileAnotherThreadOwnsIt)
{
    CRITICAL_SECTION cs;
    InitializeCriticalSection(&cs);
    EnterCriticalSection(&cs);
    EnterCriticalSection(&cs);
    EXPECT_EQ(0u, FinishAndGetExitCode(StartThread(&TryEnterShared, &cs)));
    LeaveCriticalSection(&cs);
    // Still owned once: one leave of two is not enough.
    EXPECT_EQ(0u, FinishAndGetExitCode(StartThread(&TryEnterShared, &cs)));
    LeaveCriticalSection(&cs);
    EXPECT_EQ(1u, FinishAndGetExitCode(StartThread(&TryEnterShared, &cs)));
    DeleteCriticalSection(&cs);
}

TEST_F(CriticalSectionThreadsTest, StaticSectionSerialisesNestedIncrements)
{
    constexpr int kThreads = 4;
    constexpr int kIterations = 2000;
    static long s_nCounter; // guarded by g_sharedLock only
    s_nCounter = 0;
    auto work = [](LPVOID) -> DWORD {
        for (int i = 0; i < kIterations; ++i) {
            EnterCriticalSection(&g_sharedLock);
            EnterCriticalSection(&g_sharedLock);
            long n = s_nCounter;
            s_nCounter = n + 1;
            LeaveCriticalSection(&g_sharedLock);
            LeaveCriticalSection(&g_sharedLock);
        }
        return 0;
    };
    std::vector<HANDLE> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.push_back(StartThread(work, nullptr));
    for (HANDLE h : threads)
        FinishAndGetExitCode(h);
    EnterCriticalSection(&g_sharedLock);
    EXPECT_EQ(long(kThreads) * kIterations, s_nCounter);
    LeaveCriticalSection(&g_sharedLock);
}

} // namespace
