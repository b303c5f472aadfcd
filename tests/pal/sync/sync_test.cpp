// Handles, events and waits as seen from one thread: the handle count and injected faults.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/sync/handletable.h"
#include "pal/synchapi.h"
#include "tests/support/paltest.h"

#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// The cases that need no test controls are in conformance/events_test.cpp.
using HandleTableTest = orvtest::PalTest;
using WaitFaultTest = orvtest::PalTest;
using ProcessThreadsTest = orvtest::PalTest;

HANDLE NewEvent(BOOL bManualReset, BOOL bInitialState, LPCWSTR lpName = nullptr)
{
    return CreateEventW(nullptr, bManualReset, bInitialState, lpName);
}

// Linux only: Windows hands a closed handle's value to the next object at once and ignores the
// two low bits of a handle value; the pal refuses both, so a stale handle never reaches another
// object.
TEST_F(HandleTableTest, StaleAndUntidyHandlesAreRejected)
{
    HANDLE hClosed = NewEvent(TRUE, TRUE);
    ASSERT_TRUE(CloseHandle(hClosed));
    // Enough creations to reuse the closed handle's slot whichever order slots are reused in.
    std::vector<HANDLE> handles;
    for (int i = 0; i < 8; ++i)
        handles.push_back(NewEvent(TRUE, TRUE));
    for (HANDLE h : {hClosed, reinterpret_cast<HANDLE>(ULONG_PTR(6))}) {
        SCOPED_TRACE(h);
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, CloseHandle(h));
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, SetEvent(h));
        EXPECT_CALL_ERROR(WAIT_FAILED, ERROR_INVALID_HANDLE, WaitForSingleObject(h, 0));
    }
    for (HANDLE h : handles)
        EXPECT_TRUE(CloseHandle(h));
}

TEST_F(HandleTableTest, HandlesAreSmallDistinctMultiplesOfFourAndAllCloseBack)
{
    ULONG cBefore = pal::detail::OpenHandleCount();
    std::set<HANDLE> handles;
    for (int i = 0; i < 16; ++i) {
        HANDLE h = NewEvent(FALSE, FALSE);
        EXPECT_EQ(0u, reinterpret_cast<ULONG_PTR>(h) % 4);
        EXPECT_LT(reinterpret_cast<ULONG_PTR>(h), ULONG_PTR(1) << 31);
        EXPECT_TRUE(handles.insert(h).second);
    }
    handles.insert(NewEvent(TRUE, FALSE, u"HandleTest.Count"));
    handles.insert(OpenEventW(SYNCHRONIZE, FALSE, u"HandleTest.Count"));
    EXPECT_EQ(cBefore + 18, pal::detail::OpenHandleCount());
    for (HANDLE h : handles)
        EXPECT_TRUE(CloseHandle(h));
    EXPECT_EQ(cBefore, pal::detail::OpenHandleCount());
}

// Linux only: the pal's events live in session 0, as a service's, where Global\ names are the
// session's own; and it holds a name to the documented MAX_PATH characters, which Wine does not.
using EventNamespaceTest = orvtest::PalTest;

TEST_F(EventNamespaceTest, GlobalPrefixIsSessionZerosAndNamesHaveMaxPathCharacters)
{
    HANDLE hFirst = NewEvent(TRUE, FALSE, W("EventTest.Existing"));
    HANDLE hGlobal = nullptr;
    EXPECT_CALL_ERROR(true, ERROR_ALREADY_EXISTS,
                      (hGlobal = NewEvent(TRUE, FALSE, W("Global\\EventTest.Existing"))) !=
                          nullptr);
    EXPECT_TRUE(SetEvent(hFirst));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hGlobal, 0));
    std::basic_string<WCHAR> name(MAX_PATH + 1, W('x'));
    EXPECT_CALL_ERROR(nullptr, ERROR_FILENAME_EXCED_RANGE, NewEvent(TRUE, FALSE, name.c_str()));
    EXPECT_CALL_ERROR(nullptr, ERROR_FILENAME_EXCED_RANGE,
                      OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
    CloseHandle(hGlobal);
    CloseHandle(hFirst);
}

// Linux only: Windows refuses the same object twice in a wait for all (the kernel's
// STATUS_INVALID_PARAMETER_MIX); Wine waits on it.
TEST_F(WaitFaultTest, SameObjectTwiceInAWaitForAllIsRefused)
{
    HANDLE hGood = NewEvent(TRUE, TRUE);
    HANDLE twice[] = {hGood, hGood};
    EXPECT_CALL_ERROR(WAIT_FAILED, ERROR_INVALID_PARAMETER,
                      WaitForMultipleObjects(2, twice, TRUE, 0));
    CloseHandle(hGood);
}

TEST_F(WaitFaultTest, InjectedFaultsInEventsAndWaits)
{
    pal::InjectFault("CreateEventW", ERROR_NOT_ENOUGH_MEMORY, 0, u"EventTest.Faulty");
    EXPECT_CALL_ERROR(nullptr, ERROR_NOT_ENOUGH_MEMORY,
                      NewEvent(FALSE, FALSE, u"EventTest.Faulty"));
    HANDLE h = NewEvent(FALSE, FALSE, u"EventTest.Other"); // another name is unaffected
    ASSERT_NE(nullptr, h);
    pal::InjectFault("OpenEventW", ERROR_ACCESS_DENIED, 0, u"EventTest.Other");
    EXPECT_CALL_ERROR(nullptr, ERROR_ACCESS_DENIED,
                      OpenEventW(SYNCHRONIZE, FALSE, u"EventTest.Other"));

    pal::InjectFault("SetEvent", ERROR_INVALID_HANDLE);
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, SetEvent(h));
    pal::InjectFault("WaitForSingleObject", ERROR_INVALID_HANDLE, 2);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(h, 0)); // the failed set did nothing
    pal::ClearFault("SetEvent");
    SetEvent(h);
    EXPECT_CALL_ERROR(WAIT_FAILED, ERROR_INVALID_HANDLE, WaitForSingleObject(h, 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0)); // the failed wait consumed nothing

    pal::InjectFault("WaitForMultipleObjects", ERROR_NOT_ENOUGH_MEMORY);
    SetEvent(h);
    EXPECT_CALL_ERROR(WAIT_FAILED, ERROR_NOT_ENOUGH_MEMORY,
                      WaitForMultipleObjects(1, &h, FALSE, 0));
    pal::ClearFaults();
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(1, &h, FALSE, 0)); // nor did this one
    CloseHandle(h);
}

TEST_F(ProcessThreadsTest, CurrentIdsAndACreateThreadFaultThatStartsNothing)
{
    DWORD dwId = GetCurrentThreadId();
    EXPECT_NE(0u, dwId);
    EXPECT_LT(dwId, 100000u);
    EXPECT_EQ(dwId, GetCurrentThreadId());
    EXPECT_EQ(static_cast<DWORD>(getpid()), GetCurrentProcessId());

    pal::InjectFault("CreateThread", ERROR_NOT_ENOUGH_MEMORY);
    ULONG cBefore = pal::detail::OpenHandleCount();
    auto start = [](LPVOID) -> DWORD { return 0; };
    EXPECT_CALL_ERROR(nullptr, ERROR_NOT_ENOUGH_MEMORY,
                      CreateThread(nullptr, 0, start, nullptr, 0, &dwId));
    EXPECT_EQ(GetCurrentThreadId(), dwId); // untouched
    EXPECT_EQ(cBefore, pal::detail::OpenHandleCount());
}

} // namespace
