// Handles, events, waits and critical sections as seen from one thread.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/handletable.h"
#include "pal/synchapi.h"
#include "tests/support/paltest.h"

#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using HandleTest = orvtest::PalTest;
using EventTest = orvtest::PalTest;
using WaitTest = orvtest::PalTest;
using CriticalSectionTest = orvtest::PalTest;
using ProcessThreadsTest = orvtest::PalTest;

constexpr DWORD kGenericAll = 0x10000000;
constexpr DWORD kGenericRead = 0x80000000;
constexpr DWORD kDirty = 0xDEADBEEF;

HANDLE FakeHandle(ULONG_PTR value)
{
    return reinterpret_cast<HANDLE>(value);
}

HANDLE NewEvent(BOOL bManualReset, BOOL bInitialState, LPCWSTR lpName = nullptr)
{
    return CreateEventW(nullptr, bManualReset, bInitialState, lpName);
}

// ---- Handles ----

TEST_F(HandleTest, HandlesAreSmallDistinctMultiplesOfFour)
{
    std::set<HANDLE> seen;
    std::vector<HANDLE> handles;
    for (int i = 0; i < 16; ++i) {
        HANDLE h = NewEvent(FALSE, FALSE);
        ASSERT_NE(nullptr, h);
        auto value = reinterpret_cast<ULONG_PTR>(h);
        EXPECT_EQ(0u, value % 4);
        EXPECT_LT(value, ULONG_PTR(1) << 31);
        EXPECT_TRUE(seen.insert(h).second);
        handles.push_back(h);
    }
    for (HANDLE h : handles)
        EXPECT_TRUE(CloseHandle(h));
}

TEST_F(HandleTest, CloseHandleRejectsHandlesThatAreNotOpen)
{
    HANDLE hClosed = NewEvent(TRUE, FALSE);
    ASSERT_TRUE(CloseHandle(hClosed));
    const HANDLE cases[] = {nullptr, hClosed, FakeHandle(3), FakeHandle(0x7FFFFF00),
                            FakeHandle(0x123456789ABC)};
    for (HANDLE h : cases) {
        SetLastError(kDirty);
        EXPECT_FALSE(CloseHandle(h)) << h;
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError()) << h;
    }
}

TEST_F(HandleTest, StaleHandleStaysInvalidAfterItsSlotIsReused)
{
    HANDLE hOld = NewEvent(TRUE, TRUE);
    ASSERT_TRUE(CloseHandle(hOld));
    // Enough creations to reuse the slot whichever order slots are reused in.
    std::vector<HANDLE> handles;
    for (int i = 0; i < 8; ++i)
        handles.push_back(NewEvent(TRUE, TRUE));
    SetLastError(kDirty);
    EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(hOld, 0));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    for (HANDLE h : handles)
        EXPECT_TRUE(CloseHandle(h));
}

TEST_F(HandleTest, PseudoHandlesCloseWithoutEffect)
{
    // GetCurrentProcess() is INVALID_HANDLE_VALUE and closing it succeeds on Windows.
    EXPECT_TRUE(CloseHandle(INVALID_HANDLE_VALUE));
    EXPECT_TRUE(CloseHandle(FakeHandle(ULONG_PTR(-2))));
    // Waiting on the running process only times out.
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(INVALID_HANDLE_VALUE, 0));
}

TEST_F(HandleTest, EveryCreatedHandleIsClosedBack)
{
    ULONG cBefore = pal::detail::OpenHandleCount();
    HANDLE hNamed = NewEvent(TRUE, FALSE, u"HandleTest.Count");
    HANDLE hOpened = OpenEventW(SYNCHRONIZE, FALSE, u"HandleTest.Count");
    HANDLE hPlain = NewEvent(FALSE, FALSE);
    EXPECT_EQ(cBefore + 3, pal::detail::OpenHandleCount());
    for (HANDLE h : {hNamed, hOpened, hPlain})
        EXPECT_TRUE(CloseHandle(h));
    EXPECT_EQ(cBefore, pal::detail::OpenHandleCount());
}

// ---- Events ----

struct InitialStateCase
{
    BOOL bManualReset;
    BOOL bInitialState;
    DWORD dwFirstWait;
    DWORD dwSecondWait;
};

TEST_F(EventTest, InitialStateAndConsumptionByWaits)
{
    const InitialStateCase cases[] = {
        {FALSE, FALSE, WAIT_TIMEOUT, WAIT_TIMEOUT},
        {FALSE, TRUE, WAIT_OBJECT_0, WAIT_TIMEOUT}, // the first wait consumes the signal
        {TRUE, FALSE, WAIT_TIMEOUT, WAIT_TIMEOUT},
        {TRUE, TRUE, WAIT_OBJECT_0, WAIT_OBJECT_0}, // stays signalled until reset
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "manual " << c.bManualReset << " initial " << c.bInitialState);
        SetLastError(kDirty);
        HANDLE h = NewEvent(c.bManualReset, c.bInitialState);
        ASSERT_NE(nullptr, h);
        EXPECT_WIN32(ERROR_SUCCESS, GetLastError());
        EXPECT_EQ(c.dwFirstWait, WaitForSingleObject(h, 0));
        EXPECT_EQ(c.dwSecondWait, WaitForSingleObject(h, 0));
        EXPECT_TRUE(CloseHandle(h));
    }
}

TEST_F(EventTest, AutoResetStaysSignalledUntilSomebodyWaits)
{
    HANDLE h = NewEvent(FALSE, FALSE);
    // Signals do not accumulate: two sets let one wait through.
    EXPECT_TRUE(SetEvent(h));
    EXPECT_TRUE(SetEvent(h));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(h, 0));
    EXPECT_TRUE(SetEvent(h));
    EXPECT_TRUE(ResetEvent(h));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(h, 0));
    CloseHandle(h);
}

TEST_F(EventTest, ManualResetStaysSignalledUntilReset)
{
    HANDLE h = NewEvent(TRUE, FALSE);
    EXPECT_TRUE(SetEvent(h));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0));
    EXPECT_TRUE(ResetEvent(h));
    EXPECT_TRUE(ResetEvent(h));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(h, 0));
    CloseHandle(h);
}

TEST_F(EventTest, CreatingAnExistingNameOpensItAndIgnoresTheArguments)
{
    HANDLE hFirst = NewEvent(TRUE, FALSE, u"EventTest.Existing");
    ASSERT_NE(nullptr, hFirst);
    SetLastError(kDirty);
    HANDLE hSecond = NewEvent(FALSE, TRUE, u"EventTest.Existing");
    ASSERT_NE(nullptr, hSecond);
    EXPECT_WIN32(ERROR_ALREADY_EXISTS, GetLastError());
    EXPECT_NE(hFirst, hSecond);
    // Still the first event's state and kind: not signalled, manual reset.
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hSecond, 0));
    EXPECT_TRUE(SetEvent(hFirst));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hSecond, 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hSecond, 0));
    CloseHandle(hFirst);
    CloseHandle(hSecond);
}

TEST_F(EventTest, NamesAreCaseSensitiveAndEmptyMeansUnnamed)
{
    HANDLE hUpper = NewEvent(TRUE, TRUE, u"EventTest.Case");
    SetLastError(kDirty);
    HANDLE hLower = NewEvent(TRUE, FALSE, u"eventtest.case");
    EXPECT_WIN32(ERROR_SUCCESS, GetLastError());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hLower, 0));

    HANDLE hEmpty1 = NewEvent(TRUE, TRUE, u"");
    SetLastError(kDirty);
    HANDLE hEmpty2 = NewEvent(TRUE, FALSE, u"");
    EXPECT_WIN32(ERROR_SUCCESS, GetLastError());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hEmpty2, 0));
    for (HANDLE h : {hUpper, hLower, hEmpty1, hEmpty2})
        CloseHandle(h);
}

TEST_F(EventTest, SessionPrefixesNameTheSameObject)
{
    HANDLE hPlain = NewEvent(TRUE, FALSE, u"EventTest.Prefix");
    for (LPCWSTR name : {u"Global\\EventTest.Prefix", u"Local\\EventTest.Prefix"}) {
        SetLastError(kDirty);
        HANDLE h = NewEvent(TRUE, FALSE, name);
        EXPECT_WIN32(ERROR_ALREADY_EXISTS, GetLastError()) << orvtest::Narrow(name);
        CloseHandle(h);
    }
    CloseHandle(hPlain);
}

TEST_F(EventTest, InvalidNamesFail)
{
    std::u16string tooLong(MAX_PATH + 1, u'x');
    std::u16string longest(MAX_PATH, u'y');
    struct
    {
        std::u16string name;
        DWORD dwError;
    } const cases[] = {
        {u"EventTest\\Sub", ERROR_PATH_NOT_FOUND},
        {u"Global\\A\\B", ERROR_PATH_NOT_FOUND},
        {tooLong, ERROR_FILENAME_EXCED_RANGE},
        {longest, ERROR_SUCCESS},
    };
    for (const auto& c : cases) {
        SetLastError(kDirty);
        HANDLE h = NewEvent(TRUE, FALSE, c.name.c_str());
        EXPECT_WIN32(c.dwError, GetLastError()) << orvtest::Narrow(c.name);
        EXPECT_EQ(c.dwError == ERROR_SUCCESS, h != nullptr) << orvtest::Narrow(c.name);
        if (h)
            CloseHandle(h);
        if (c.dwError != ERROR_SUCCESS) {
            SetLastError(kDirty);
            EXPECT_EQ(nullptr, OpenEventW(SYNCHRONIZE, FALSE, c.name.c_str()));
            EXPECT_WIN32(c.dwError, GetLastError()) << orvtest::Narrow(c.name);
        }
    }
}

TEST_F(EventTest, OpenEventFailures)
{
    SetLastError(kDirty);
    EXPECT_EQ(nullptr, OpenEventW(EVENT_ALL_ACCESS, FALSE, nullptr));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, GetLastError());
    SetLastError(kDirty);
    EXPECT_EQ(nullptr, OpenEventW(EVENT_ALL_ACCESS, FALSE, u"EventTest.Nobody"));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, GetLastError());
}

TEST_F(EventTest, OpenedHandleSharesTheObject)
{
    HANDLE hCreated = NewEvent(FALSE, FALSE, u"EventTest.Shared");
    SetLastError(kDirty);
    HANDLE hOpened = OpenEventW(EVENT_ALL_ACCESS, FALSE, u"EventTest.Shared");
    ASSERT_NE(nullptr, hOpened);
    EXPECT_WIN32(kDirty, GetLastError()); // OpenEventW leaves it alone on success
    EXPECT_TRUE(SetEvent(hOpened));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hCreated, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hOpened, 0));
    CloseHandle(hCreated);
    CloseHandle(hOpened);
}

struct AccessCase
{
    const char* szLabel;
    DWORD dwDesiredAccess;
    bool fCanWait;
    bool fCanModify;
};

TEST_F(EventTest, OpenedHandleGrantsOnlyTheRequestedAccess)
{
    const AccessCase cases[] = {
        {"SYNCHRONIZE", SYNCHRONIZE, true, false},
        {"EVENT_MODIFY_STATE", EVENT_MODIFY_STATE, false, true},
        {"both", SYNCHRONIZE | EVENT_MODIFY_STATE, true, true},
        {"EVENT_ALL_ACCESS", EVENT_ALL_ACCESS, true, true},
        {"GENERIC_ALL", kGenericAll, true, true},
        {"GENERIC_READ", kGenericRead, false, false},
        {"none", 0, false, false},
    };
    HANDLE hOwner = NewEvent(TRUE, TRUE, u"EventTest.Access");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.szLabel);
        HANDLE h = OpenEventW(c.dwDesiredAccess, FALSE, u"EventTest.Access");
        ASSERT_NE(nullptr, h);

        SetLastError(kDirty);
        DWORD dwWait = WaitForSingleObject(h, 0);
        EXPECT_EQ(c.fCanWait ? WAIT_OBJECT_0 : WAIT_FAILED, dwWait);
        EXPECT_WIN32(c.fCanWait ? kDirty : ERROR_ACCESS_DENIED, GetLastError());

        SetLastError(kDirty);
        EXPECT_EQ(c.fCanModify, SetEvent(h) != FALSE);
        EXPECT_WIN32(c.fCanModify ? kDirty : ERROR_ACCESS_DENIED, GetLastError());

        SetLastError(kDirty);
        EXPECT_EQ(c.fCanModify, ResetEvent(h) != FALSE);
        EXPECT_WIN32(c.fCanModify ? kDirty : ERROR_ACCESS_DENIED, GetLastError());
        SetEvent(hOwner);

        // Any handle may be closed, whatever its rights.
        EXPECT_TRUE(CloseHandle(h));
    }
    CloseHandle(hOwner);
}

TEST_F(EventTest, NamedEventLivesWhileAnyHandleIsOpen)
{
    HANDLE hCreated = NewEvent(TRUE, TRUE, u"EventTest.Lifetime");
    HANDLE hOpened = OpenEventW(SYNCHRONIZE, FALSE, u"EventTest.Lifetime");
    ASSERT_NE(nullptr, hOpened);
    EXPECT_TRUE(CloseHandle(hCreated));

    HANDLE hAgain = OpenEventW(SYNCHRONIZE, FALSE, u"EventTest.Lifetime");
    ASSERT_NE(nullptr, hAgain);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hAgain, 0));
    EXPECT_TRUE(CloseHandle(hAgain));
    EXPECT_TRUE(CloseHandle(hOpened));

    SetLastError(kDirty);
    EXPECT_EQ(nullptr, OpenEventW(SYNCHRONIZE, FALSE, u"EventTest.Lifetime"));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, GetLastError());
    // The name is free again: a new event, with the new arguments.
    SetLastError(kDirty);
    HANDLE hNew = NewEvent(TRUE, FALSE, u"EventTest.Lifetime");
    EXPECT_WIN32(ERROR_SUCCESS, GetLastError());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hNew, 0));
    CloseHandle(hNew);
}

TEST_F(EventTest, BadHandlesFailWithInvalidHandle)
{
    HANDLE hClosed = NewEvent(TRUE, FALSE);
    CloseHandle(hClosed);
    for (HANDLE h : {HANDLE(nullptr), hClosed, FakeHandle(0x1000), INVALID_HANDLE_VALUE}) {
        SetLastError(kDirty);
        EXPECT_FALSE(SetEvent(h));
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
        SetLastError(kDirty);
        EXPECT_FALSE(ResetEvent(h));
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    }
}

TEST_F(EventTest, InjectedFaults)
{
    pal::InjectFault("CreateEventW", ERROR_NOT_ENOUGH_MEMORY, 0, u"EventTest.Faulty");
    SetLastError(kDirty);
    EXPECT_EQ(nullptr, NewEvent(FALSE, FALSE, u"EventTest.Faulty"));
    EXPECT_WIN32(ERROR_NOT_ENOUGH_MEMORY, GetLastError());
    HANDLE hOther = NewEvent(FALSE, FALSE, u"EventTest.Other"); // another name is unaffected
    EXPECT_NE(nullptr, hOther);

    pal::InjectFault("OpenEventW", ERROR_ACCESS_DENIED, 0, u"EventTest.Other");
    SetLastError(kDirty);
    EXPECT_EQ(nullptr, OpenEventW(SYNCHRONIZE, FALSE, u"EventTest.Other"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, GetLastError());

    pal::InjectFault("SetEvent", ERROR_INVALID_HANDLE);
    SetLastError(kDirty);
    EXPECT_FALSE(SetEvent(hOther));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hOther, 0)); // the failed set did nothing
    pal::ClearFaults();
    CloseHandle(hOther);
}

// ---- Waits ----

TEST_F(WaitTest, BadHandlesFail)
{
    HANDLE hClosed = NewEvent(TRUE, TRUE);
    CloseHandle(hClosed);
    for (HANDLE h : {HANDLE(nullptr), hClosed, FakeHandle(0x2000), FakeHandle(6)}) {
        SetLastError(kDirty);
        EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(h, 0));
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
        SetLastError(kDirty);
        EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(h, INFINITE));
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    }
}

TEST_F(WaitTest, MultipleObjectsParameterErrors)
{
    HANDLE hGood = NewEvent(TRUE, TRUE);
    std::vector<HANDLE> many(MAXIMUM_WAIT_OBJECTS + 1, hGood);
    HANDLE mixed[] = {hGood, nullptr};
    HANDLE twice[] = {hGood, hGood};
    struct
    {
        const char* szLabel;
        DWORD nCount;
        const HANDLE* lpHandles;
        BOOL bWaitAll;
        DWORD dwError;
    } const cases[] = {
        {"no handles", 0, many.data(), FALSE, ERROR_INVALID_PARAMETER},
        {"65 handles", MAXIMUM_WAIT_OBJECTS + 1, many.data(), FALSE, ERROR_INVALID_PARAMETER},
        {"65 handles, all", MAXIMUM_WAIT_OBJECTS + 1, many.data(), TRUE, ERROR_INVALID_PARAMETER},
        {"a bad handle", 2, mixed, FALSE, ERROR_INVALID_HANDLE},
        {"a bad handle, all", 2, mixed, TRUE, ERROR_INVALID_HANDLE},
        {"one object twice, all", 2, twice, TRUE, ERROR_INVALID_PARAMETER},
    };
    for (const auto& c : cases) {
        SetLastError(kDirty);
        EXPECT_EQ(WAIT_FAILED, WaitForMultipleObjects(c.nCount, c.lpHandles, c.bWaitAll, 0))
            << c.szLabel;
        EXPECT_WIN32(c.dwError, GetLastError()) << c.szLabel;
    }
    // The same object twice is fine when any one will do.
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, twice, FALSE, 0));
    CloseHandle(hGood);
}

TEST_F(WaitTest, AnyReturnsTheLowestSignalledIndexAndConsumesOnlyIt)
{
    HANDLE handles[4];
    for (HANDLE& h : handles)
        h = NewEvent(FALSE, FALSE);
    SetEvent(handles[3]);
    SetEvent(handles[1]);
    EXPECT_EQ(WAIT_OBJECT_0 + 1, WaitForMultipleObjects(4, handles, FALSE, 0));
    EXPECT_EQ(WAIT_OBJECT_0 + 3, WaitForMultipleObjects(4, handles, FALSE, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(4, handles, FALSE, 0));
    for (HANDLE h : handles)
        CloseHandle(h);
}

TEST_F(WaitTest, AllConsumesNothingUntilEveryObjectIsSignalled)
{
    HANDLE hAuto = NewEvent(FALSE, FALSE);
    HANDLE hManual = NewEvent(TRUE, FALSE);
    HANDLE handles[] = {hAuto, hManual};
    SetEvent(hAuto);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(2, handles, TRUE, 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hAuto, 0)); // still signalled

    SetEvent(hAuto);
    SetEvent(hManual);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, handles, TRUE, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hAuto, 0));    // consumed
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hManual, 0)); // manual: still set
    CloseHandle(hAuto);
    CloseHandle(hManual);
}

TEST_F(WaitTest, SixtyFourObjectsAreAllowed)
{
    std::vector<HANDLE> handles;
    for (int i = 0; i < MAXIMUM_WAIT_OBJECTS; ++i)
        handles.push_back(NewEvent(TRUE, TRUE));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, handles.data(), TRUE, 0));
    ResetEvent(handles[0]);
    EXPECT_EQ(WAIT_OBJECT_0 + 1,
              WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, handles.data(), FALSE, 0));
    for (HANDLE h : handles)
        CloseHandle(h);
}

TEST_F(WaitTest, InjectedFaults)
{
    HANDLE h = NewEvent(TRUE, TRUE);
    pal::InjectFault("WaitForSingleObject", ERROR_INVALID_HANDLE, 2);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0));
    SetLastError(kDirty);
    EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(h, 0));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0));
    pal::InjectFault("WaitForMultipleObjects", ERROR_NOT_ENOUGH_MEMORY);
    SetLastError(kDirty);
    EXPECT_EQ(WAIT_FAILED, WaitForMultipleObjects(1, &h, FALSE, 0));
    EXPECT_WIN32(ERROR_NOT_ENOUGH_MEMORY, GetLastError());
    pal::ClearFaults();
    CloseHandle(h);
}

// ---- Critical sections ----

// Set up before main by a static initialiser, as the trace lock is.
CRITICAL_SECTION g_staticLock;
struct StaticLockInit
{
    StaticLockInit() { InitializeCriticalSection(&g_staticLock); }
} g_staticLockInit;

TEST_F(CriticalSectionTest, OwnerEntersAgainAndLeavesAsOften)
{
    CRITICAL_SECTION cs;
    EXPECT_TRUE(InitializeCriticalSectionAndSpinCount(&cs, 4000));
    EnterCriticalSection(&cs);
    EnterCriticalSection(&cs);
    EXPECT_TRUE(TryEnterCriticalSection(&cs));
    LeaveCriticalSection(&cs);
    LeaveCriticalSection(&cs);
    LeaveCriticalSection(&cs);
    EXPECT_TRUE(TryEnterCriticalSection(&cs));
    LeaveCriticalSection(&cs);
    DeleteCriticalSection(&cs);
}

TEST_F(CriticalSectionTest, StaticallyInitialisedSectionWorks)
{
    EnterCriticalSection(&g_staticLock);
    EXPECT_TRUE(TryEnterCriticalSection(&g_staticLock));
    LeaveCriticalSection(&g_staticLock);
    LeaveCriticalSection(&g_staticLock);
}

TEST_F(CriticalSectionTest, SectionCanBeInitialisedAgainAfterDelete)
{
    CRITICAL_SECTION cs;
    for (int i = 0; i < 3; ++i) {
        InitializeCriticalSection(&cs);
        EnterCriticalSection(&cs);
        LeaveCriticalSection(&cs);
        DeleteCriticalSection(&cs);
    }
}

// ---- Threads and the process, from the calling thread ----

TEST_F(ProcessThreadsTest, CurrentIdsAreStableAndSmall)
{
    DWORD dwId = GetCurrentThreadId();
    EXPECT_NE(0u, dwId);
    EXPECT_LT(dwId, 100000u);
    EXPECT_EQ(dwId, GetCurrentThreadId());
    EXPECT_EQ(static_cast<DWORD>(getpid()), GetCurrentProcessId());
}

TEST_F(ProcessThreadsTest, ThreadCallsOnBadHandles)
{
    HANDLE hEvent = NewEvent(TRUE, FALSE);
    for (HANDLE h : {HANDLE(nullptr), FakeHandle(0x3000), hEvent}) {
        DWORD dwCode = kDirty;
        SetLastError(kDirty);
        EXPECT_FALSE(GetExitCodeThread(h, &dwCode));
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
        EXPECT_EQ(kDirty, dwCode);
        SetLastError(kDirty);
        EXPECT_EQ(static_cast<DWORD>(-1), ResumeThread(h));
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    }
    CloseHandle(hEvent);
}

TEST_F(ProcessThreadsTest, CreateThreadFaultStartsNothing)
{
    pal::InjectFault("CreateThread", ERROR_NOT_ENOUGH_MEMORY);
    ULONG cBefore = pal::detail::OpenHandleCount();
    DWORD dwId = kDirty;
    SetLastError(kDirty);
    HANDLE h = CreateThread(
        nullptr, 0, [](LPVOID) -> DWORD { return 0; }, nullptr, 0, &dwId);
    EXPECT_EQ(nullptr, h);
    EXPECT_WIN32(ERROR_NOT_ENOUGH_MEMORY, GetLastError());
    EXPECT_EQ(kDirty, dwId);
    EXPECT_EQ(cBefore, pal::detail::OpenHandleCount());
}

} // namespace
