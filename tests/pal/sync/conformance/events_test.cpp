// Handles, events and waits as seen from one thread.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"
#include "tests/support/conformance.h"

#include <string>
#include <tuple>
#include <vector>

namespace {

using HandleTest = orvtest::ConformanceTest;
using EventTest = orvtest::ConformanceTest;
using WaitTest = orvtest::ConformanceTest;

constexpr DWORD kDirty = orvtest::LAST_ERROR_UNTOUCHED;

HANDLE FakeHandle(ULONG_PTR value)
{
    return reinterpret_cast<HANDLE>(value);
}

HANDLE NewEvent(BOOL bManualReset, BOOL bInitialState, LPCWSTR lpName = nullptr)
{
    return CreateEventW(nullptr, bManualReset, bInitialState, lpName);
}

// `prefix` + `base` made unique to this process: on Windows the namespace is the session's.
orvtest::WString Name(const char* base, const char* prefix = "")
{
    return orvtest::Wide(std::string(prefix) + base + "." + std::to_string(GetCurrentProcessId()));
}

TEST_F(HandleTest, EveryCallRejectsHandlesThatAreNotOpen)
{
    std::vector<HANDLE> handles;
    for (int i = 0; i < 8; ++i)
        handles.push_back(NewEvent(TRUE, TRUE));
    // 3 is handle 0 with the two tag bits Windows ignores.
    for (HANDLE h : {HANDLE(nullptr), FakeHandle(3), FakeHandle(0x1000), FakeHandle(0x7FFFFF00),
                     FakeHandle(0x123456789ABC)}) {
        SCOPED_TRACE(h);
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, CloseHandle(h));
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, SetEvent(h));
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, ResetEvent(h));
        EXPECT_CALL_ERROR(WAIT_FAILED, ERROR_INVALID_HANDLE, WaitForSingleObject(h, 0));
        EXPECT_CALL_ERROR(WAIT_FAILED, ERROR_INVALID_HANDLE, WaitForSingleObject(h, INFINITE));
    }
    // An event is no thread.
    for (HANDLE h : {HANDLE(nullptr), FakeHandle(0x3000), handles[0]}) {
        DWORD dwCode = kDirty;
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, GetExitCodeThread(h, &dwCode));
        EXPECT_EQ(kDirty, dwCode);
        EXPECT_CALL_ERROR(static_cast<DWORD>(-1), ERROR_INVALID_HANDLE, ResumeThread(h));
    }
    for (HANDLE h : handles)
        EXPECT_TRUE(CloseHandle(h));

    // GetCurrentProcess() is INVALID_HANDLE_VALUE: closing it succeeds and waiting times out,
    // as for the current thread's pseudo handle; it is no event.
    EXPECT_TRUE(CloseHandle(INVALID_HANDLE_VALUE));
    EXPECT_TRUE(CloseHandle(FakeHandle(ULONG_PTR(-2))));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(INVALID_HANDLE_VALUE, 0));
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, SetEvent(INVALID_HANDLE_VALUE));
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, ResetEvent(INVALID_HANDLE_VALUE));
}

TEST_F(EventTest, InitialStateSetResetAndConsumptionByWaits)
{
    for (BOOL bManualReset : {FALSE, TRUE}) {
        for (BOOL bInitialState : {FALSE, TRUE}) {
            SCOPED_TRACE(testing::Message()
                         << "manual " << bManualReset << ", initial " << bInitialState);
            HANDLE h = nullptr;
            EXPECT_CALL_ERROR(true, ERROR_SUCCESS,
                              (h = NewEvent(bManualReset, bInitialState)) != nullptr);
            // An auto-reset event lets one wait through; a manual-reset one stays signalled.
            EXPECT_EQ(bInitialState ? WAIT_OBJECT_0 : WAIT_TIMEOUT, WaitForSingleObject(h, 0));
            EXPECT_EQ(bInitialState && bManualReset ? WAIT_OBJECT_0 : WAIT_TIMEOUT,
                      WaitForSingleObject(h, 0));
            // Signals do not accumulate: two sets let one auto-reset wait through.
            EXPECT_TRUE(SetEvent(h));
            EXPECT_TRUE(SetEvent(h));
            EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, 0));
            EXPECT_EQ(bManualReset ? WAIT_OBJECT_0 : WAIT_TIMEOUT, WaitForSingleObject(h, 0));
            EXPECT_TRUE(SetEvent(h));
            EXPECT_TRUE(ResetEvent(h));
            EXPECT_TRUE(ResetEvent(h));
            EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(h, 0));
            EXPECT_TRUE(CloseHandle(h));
        }
    }
}

TEST_F(EventTest, NamesAreCaseSensitiveSessionPrefixedAndEmptyMeansUnnamed)
{
    const orvtest::WString name = Name("EventTest.Existing");
    HANDLE hFirst = NewEvent(TRUE, FALSE, name.c_str());
    // Creating an existing name opens it and ignores the arguments: still not signalled and
    // manual reset.
    HANDLE hSecond = nullptr;
    EXPECT_CALL_ERROR(true, ERROR_ALREADY_EXISTS,
                      (hSecond = NewEvent(FALSE, TRUE, name.c_str())) != nullptr);
    EXPECT_NE(hFirst, hSecond);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hSecond, 0));
    EXPECT_TRUE(SetEvent(hFirst));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hSecond, 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hSecond, 0));
    std::vector<HANDLE> handles = {hFirst, hSecond};
    // Global\ names are the same only in session 0 (see EventNamespaceTest).
    SetLastError(kDirty);
    handles.push_back(NewEvent(TRUE, FALSE, Name("EventTest.Existing", "Local\\").c_str()));
    EXPECT_WIN32(ERROR_ALREADY_EXISTS, GetLastError());
    // New events, each in the state it is created with.
    const std::pair<orvtest::WString, BOOL> fresh[] = {
        {Name("eventtest.existing"), FALSE}, {W(""), TRUE}, {W(""), FALSE}};
    for (const auto& [freshName, bInitialState] : fresh) {
        SetLastError(kDirty);
        handles.push_back(NewEvent(TRUE, bInitialState, freshName.c_str()));
        EXPECT_WIN32(ERROR_SUCCESS, GetLastError()) << orvtest::Narrow(freshName);
        EXPECT_EQ(bInitialState ? WAIT_OBJECT_0 : WAIT_TIMEOUT,
                  WaitForSingleObject(handles.back(), 0));
    }
    for (HANDLE h : handles)
        EXPECT_TRUE(CloseHandle(h));
}

TEST_F(EventTest, InvalidNamesAndOpenFailures)
{
    const std::pair<orvtest::WString, DWORD> invalid[] = {
        {Name("EventTest\\Sub"), ERROR_PATH_NOT_FOUND},
        {Name("A\\B", "Global\\"), ERROR_PATH_NOT_FOUND},
    };
    for (const auto& [name, dwError] : invalid) {
        SCOPED_TRACE(orvtest::Narrow(name));
        EXPECT_CALL_ERROR(nullptr, dwError, NewEvent(TRUE, FALSE, name.c_str()));
        EXPECT_CALL_ERROR(nullptr, dwError, OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
    }
    orvtest::WString longest = Name("y");
    longest.insert(0, MAX_PATH - longest.size(), W('y'));
    HANDLE h = nullptr;
    EXPECT_CALL_ERROR(true, ERROR_SUCCESS, (h = NewEvent(TRUE, FALSE, longest.c_str())) != nullptr);
    CloseHandle(h);
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER,
                      OpenEventW(EVENT_ALL_ACCESS, FALSE, nullptr));
    EXPECT_CALL_ERROR(nullptr, ERROR_FILE_NOT_FOUND,
                      OpenEventW(EVENT_ALL_ACCESS, FALSE, Name("EventTest.Nobody").c_str()));
}

TEST_F(EventTest, OpenedHandleSharesTheObjectWhichLivesWhileAnyHandleIsOpen)
{
    const orvtest::WString name = Name("EventTest.Lifetime");
    HANDLE hCreated = NewEvent(FALSE, FALSE, name.c_str());
    HANDLE hOpened = nullptr;
    // OpenEventW leaves the last error alone on success.
    EXPECT_CALL_ERROR(true, kDirty,
                      (hOpened = OpenEventW(EVENT_ALL_ACCESS, FALSE, name.c_str())) != nullptr);
    EXPECT_TRUE(SetEvent(hOpened));
    EXPECT_TRUE(CloseHandle(hCreated));
    HANDLE hAgain = OpenEventW(SYNCHRONIZE, FALSE, name.c_str());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hAgain, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(hOpened, 0)); // consumed through another handle
    EXPECT_TRUE(CloseHandle(hAgain));
    EXPECT_TRUE(CloseHandle(hOpened));

    EXPECT_CALL_ERROR(nullptr, ERROR_FILE_NOT_FOUND, OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
    // The name is free again: a new event, with the new arguments.
    HANDLE hNew = nullptr;
    EXPECT_CALL_ERROR(true, ERROR_SUCCESS, (hNew = NewEvent(TRUE, TRUE, name.c_str())) != nullptr);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hNew, 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hNew, 0));
    CloseHandle(hNew);
}

TEST_F(EventTest, OpenedHandleGrantsOnlyTheRequestedAccess)
{
    // Access, and whether it lets the handle wait and change the state.
    const std::tuple<DWORD, bool, bool> cases[] = {
        {SYNCHRONIZE, true, false},
        {EVENT_MODIFY_STATE, false, true},
        {SYNCHRONIZE | EVENT_MODIFY_STATE, true, true},
        {EVENT_ALL_ACCESS, true, true},
        {0x10000000 /* GENERIC_ALL */, true, true},
        {0x80000000 /* GENERIC_READ */, false, false},
        {0, false, false},
    };
    const orvtest::WString name = Name("EventTest.Access");
    HANDLE hOwner = NewEvent(TRUE, TRUE, name.c_str());
    for (auto [dwAccess, fCanWait, fCanModify] : cases) {
        SCOPED_TRACE(orvtest::HexCode(dwAccess));
        HANDLE h = OpenEventW(dwAccess, FALSE, name.c_str());
        ASSERT_NE(nullptr, h);
        EXPECT_CALL_ERROR(fCanWait ? WAIT_OBJECT_0 : WAIT_FAILED,
                          fCanWait ? kDirty : ERROR_ACCESS_DENIED, WaitForSingleObject(h, 0));
        DWORD dwError = fCanModify ? kDirty : ERROR_ACCESS_DENIED;
        EXPECT_CALL_ERROR(fCanModify, dwError, SetEvent(h) != FALSE);
        EXPECT_CALL_ERROR(fCanModify, dwError, ResetEvent(h) != FALSE);
        SetEvent(hOwner);
        EXPECT_TRUE(CloseHandle(h)); // any handle may be closed, whatever its rights
    }
    CloseHandle(hOwner);
}

TEST_F(WaitTest, MultipleObjectsParameterErrors)
{
    HANDLE hGood = NewEvent(TRUE, TRUE);
    std::vector<HANDLE> many(MAXIMUM_WAIT_OBJECTS + 1, hGood);
    HANDLE mixed[] = {hGood, nullptr};
    HANDLE twice[] = {hGood, hGood};
    for (BOOL bWaitAll : {FALSE, TRUE}) {
        for (DWORD nCount : {DWORD{0}, DWORD{MAXIMUM_WAIT_OBJECTS + 1}})
            EXPECT_CALL_ERROR(WAIT_FAILED, ERROR_INVALID_PARAMETER,
                              WaitForMultipleObjects(nCount, many.data(), bWaitAll, 0));
        EXPECT_CALL_ERROR(WAIT_FAILED, ERROR_INVALID_HANDLE,
                          WaitForMultipleObjects(2, mixed, bWaitAll, 0));
    }
    // The same object twice is fine when any one will do (see WaitFaultTest for all of them).
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, twice, FALSE, 0));
    CloseHandle(hGood);
}

TEST_F(WaitTest, AnyTakesTheLowestSignalledIndexAndAllTakesEveryObjectOrNone)
{
    constexpr DWORD n = MAXIMUM_WAIT_OBJECTS; // as many as allowed
    std::vector<HANDLE> handles;
    for (DWORD i = 0; i < n; ++i)
        handles.push_back(NewEvent(FALSE, FALSE));
    SetEvent(handles[63]);
    SetEvent(handles[1]);
    EXPECT_EQ(WAIT_OBJECT_0 + 1, WaitForMultipleObjects(n, handles.data(), FALSE, 0));
    EXPECT_EQ(WAIT_OBJECT_0 + 63, WaitForMultipleObjects(n, handles.data(), FALSE, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(n, handles.data(), FALSE, 0));
    // One short of all consumes nothing; all of them consume every auto-reset signal.
    for (DWORD i = 1; i < n; ++i)
        SetEvent(handles[i]);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(n, handles.data(), TRUE, 0));
    EXPECT_EQ(WAIT_OBJECT_0 + 1, WaitForMultipleObjects(n, handles.data(), FALSE, 0));
    SetEvent(handles[1]);
    SetEvent(handles[0]);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(n, handles.data(), TRUE, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(n, handles.data(), FALSE, 0));
    for (HANDLE h : handles)
        CloseHandle(h);

    // A manual-reset event stays set after a wait for all.
    HANDLE pair[] = {NewEvent(FALSE, TRUE), NewEvent(TRUE, TRUE)};
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, pair, TRUE, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(pair[0], 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(pair[1], 0));
    for (HANDLE h : pair)
        CloseHandle(h);
}

} // namespace
