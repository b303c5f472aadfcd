// Threads, their handles and ids, and critical sections shared between threads.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"
#include "tests/support/paltest.h"

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace {

using ThreadTest = orvtest::PalTest;
using CriticalSectionThreadsTest = orvtest::PalTest;

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

TEST_F(ThreadTest, ExitCodeIsTheReturnValueAndTheLastErrorStartsAtZero)
{
    auto returnParameter = [](LPVOID pv) -> DWORD {
        return static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(pv));
    };
    for (DWORD dwCode : {0u, 1u, 42u, 0x80070005u, 0xFFFFFFFFu}) {
        HANDLE h = StartThread(returnParameter, reinterpret_cast<LPVOID>(ULONG_PTR(dwCode)));
        ASSERT_NE(nullptr, h);
        EXPECT_EQ(dwCode, FinishAndGetExitCode(h));
    }
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(0u, FinishAndGetExitCode(
                      StartThread([](LPVOID) -> DWORD { return GetLastError(); }, nullptr)));
}

// A thread that records its id and that it ran, waits for the gate to open and counts itself
// done.
struct Gate
{
    HANDLE hGo = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> dwSeenId{0};
    std::atomic<int> cRuns{0};
    std::atomic<int> cDone{0};
    ~Gate() { CloseHandle(hGo); }

    static DWORD WINAPI Main(LPVOID pv)
    {
        auto* self = static_cast<Gate*>(pv);
        self->dwSeenId = GetCurrentThreadId();
        ++self->cRuns;
        WaitForSingleObject(self->hGo, INFINITE);
        ++self->cDone;
        return 7;
    }
};

TEST_F(ThreadTest, SuspendedThreadRunsOnlyWhenResumedAndItsHandleIsSignalledWhenItEnds)
{
    Gate gate;
    DWORD dwId = 0;
    HANDLE h = StartThread(&Gate::Main, &gate, CREATE_SUSPENDED, &dwId);
    ASSERT_NE(nullptr, h);
    EXPECT_NE(0u, dwId);
    pal::SetClockScale(1000);
    for (DWORD dwSuspendCount : {1u, 0u}) {
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(h, 5000));
        EXPECT_EQ(dwSuspendCount ? 0 : 1, gate.cRuns.load());
        DWORD dwCode = 0;
        EXPECT_TRUE(GetExitCodeThread(h, &dwCode));
        EXPECT_EQ(DWORD(STILL_ACTIVE), dwCode);
        EXPECT_EQ(dwSuspendCount, ResumeThread(h)); // the second time it is running
        if (dwSuspendCount) {
            ASSERT_TRUE(orvtest::WaitUntil([&] { return gate.cRuns.load() == 1; }));
        }
    }
    EXPECT_EQ(dwId, gate.dwSeenId.load());
    SetEvent(gate.hGo);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, INFINITE));
    // A finished thread's handle stays signalled: waiting consumes nothing.
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0));
    HANDLE twice[] = {h, h};
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, twice, FALSE, 0));
    // It is no event.
    for (auto change : {&SetEvent, &ResetEvent}) {
        SetLastError(0xDEADBEEF);
        EXPECT_FALSE(change(h));
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    }
    EXPECT_EQ(7u, FinishAndGetExitCode(h));
    SetLastError(0xDEADBEEF);
    EXPECT_FALSE(CloseHandle(h));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
}

TEST_F(ThreadTest, ClosingTheHandleDoesNotStopTheThread)
{
    Gate gate;
    HANDLE h = StartThread(&Gate::Main, &gate);
    ASSERT_TRUE(CloseHandle(h));
    ASSERT_TRUE(orvtest::WaitUntil([&] { return gate.cRuns.load() == 1; }));
    SetEvent(gate.hGo);
    EXPECT_TRUE(orvtest::WaitUntil([&] { return gate.cDone.load() == 1; }));
}

TEST_F(ThreadTest, LiveThreadsHaveDistinctStableIds)
{
    constexpr int kThreads = 8;
    struct Shared
    {
        HANDLE hRelease = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        DWORD ids[kThreads] = {};
        std::atomic<int> nextSlot{0};
        std::atomic<int> cStarted{0};
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
                return GetCurrentThreadId() == dwId ? 0 : 1;
            },
            &shared, 0, &reported[i]));
    }
    // A thread this layer did not start gets an id on first use too.
    DWORD dwForeign = 0;
    std::thread([&dwForeign] { dwForeign = GetCurrentThreadId(); }).join();

    ASSERT_TRUE(orvtest::WaitUntil([&] { return shared.cStarted.load() == kThreads; }));
    std::set<DWORD> ids(shared.ids, shared.ids + kThreads);
    EXPECT_EQ(std::set<DWORD>(reported.begin(), reported.end()), ids);
    ids.insert(GetCurrentThreadId());
    ids.insert(dwForeign);
    EXPECT_EQ(size_t(kThreads + 2), ids.size());
    EXPECT_EQ(0u, ids.count(0));

    SetEvent(shared.hRelease);
    for (HANDLE h : threads)
        EXPECT_EQ(0u, FinishAndGetExitCode(h));
    CloseHandle(shared.hRelease);
}

// ---- Critical sections across threads ----

// Set up before main by a static initialiser, as the trace lock is.
CRITICAL_SECTION g_sharedLock;
struct SharedLockInit
{
    SharedLockInit() { InitializeCriticalSection(&g_sharedLock); }
} g_sharedLockInit;

TEST_F(CriticalSectionThreadsTest, OwnerEntersAgainAndOtherThreadsOnlyOnceItLeftAsOften)
{
    auto tryEnter = [](LPVOID pv) -> DWORD {
        auto* pcs = static_cast<LPCRITICAL_SECTION>(pv);
        if (!TryEnterCriticalSection(pcs))
            return 0;
        LeaveCriticalSection(pcs);
        return 1;
    };
    CRITICAL_SECTION cs;
    for (int i = 0; i < 2; ++i) { // a section can be initialised again after its deletion
        EXPECT_TRUE(InitializeCriticalSectionAndSpinCount(&cs, 4000));
        EnterCriticalSection(&cs);
        EnterCriticalSection(&cs);
        EXPECT_TRUE(TryEnterCriticalSection(&cs));
        LeaveCriticalSection(&cs);
        EXPECT_EQ(0u, FinishAndGetExitCode(StartThread(tryEnter, &cs)));
        LeaveCriticalSection(&cs);
        // Still owned once: one leave of two is not enough.
        EXPECT_EQ(0u, FinishAndGetExitCode(StartThread(tryEnter, &cs)));
        LeaveCriticalSection(&cs);
        EXPECT_EQ(1u, FinishAndGetExitCode(StartThread(tryEnter, &cs)));
        DeleteCriticalSection(&cs);
    }
    // One set up before main by a static initialiser, as the trace lock is.
    EnterCriticalSection(&g_sharedLock);
    EXPECT_TRUE(TryEnterCriticalSection(&g_sharedLock));
    LeaveCriticalSection(&g_sharedLock);
    EXPECT_EQ(0u, FinishAndGetExitCode(StartThread(tryEnter, &g_sharedLock)));
    LeaveCriticalSection(&g_sharedLock);
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
