// Process handles: the exit code of the running process, and the refusals of OpenProcess and
// GetExitCodeProcess.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"
#include "tests/support/conformance.h"

namespace {

using ProcessTest = orvtest::ConformanceTest;

TEST_F(ProcessTest, RunningProcessIsStillActiveToEveryQueryRight)
{
    for (DWORD dwAccess : {DWORD(PROCESS_QUERY_LIMITED_INFORMATION),
                           DWORD(PROCESS_QUERY_INFORMATION), DWORD(PROCESS_ALL_ACCESS)}) {
        SCOPED_TRACE(dwAccess);
        HANDLE h = OpenProcess(dwAccess, FALSE, GetCurrentProcessId());
        ASSERT_NE(nullptr, h) << GetLastError();
        DWORD dwCode = 0;
        EXPECT_CALL_ERROR(TRUE, orvtest::LAST_ERROR_UNTOUCHED, GetExitCodeProcess(h, &dwCode));
        EXPECT_EQ(DWORD(STILL_ACTIVE), dwCode);
        EXPECT_TRUE(CloseHandle(h));
    }
    DWORD dwCode = 0;
    EXPECT_TRUE(GetExitCodeProcess(GetCurrentProcess(), &dwCode));
    EXPECT_EQ(DWORD(STILL_ACTIVE), dwCode);
}

TEST_F(ProcessTest, RefusesUnknownProcessesWrongHandlesAndMissingRights)
{
    // No process has these ids: 0 is the idle process, which cannot be opened.
    for (DWORD dwProcessId : {0u, 0x7FFFFFFCu})
        EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER,
                          OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, dwProcessId));

    HANDLE hClosed = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, GetCurrentProcessId());
    ASSERT_NE(nullptr, hClosed);
    ASSERT_TRUE(CloseHandle(hClosed));
    HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE hSynchronize = OpenProcess(SYNCHRONIZE, FALSE, GetCurrentProcessId());
    HANDLE hTerminate = OpenProcess(PROCESS_TERMINATE, FALSE, GetCurrentProcessId());
    ASSERT_NE(nullptr, hEvent);
    ASSERT_NE(nullptr, hSynchronize);
    ASSERT_NE(nullptr, hTerminate);
    const struct
    {
        const char* what;
        HANDLE h;
        DWORD dwError;
    } rows[] = {
        {"closed", hClosed, ERROR_INVALID_HANDLE},
        {"event", hEvent, ERROR_INVALID_HANDLE},
        {"synchronize only", hSynchronize, ERROR_ACCESS_DENIED},
        {"terminate only", hTerminate, ERROR_ACCESS_DENIED},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        DWORD dwCode = 0xCDCDCDCD;
        EXPECT_CALL_ERROR(FALSE, row.dwError, GetExitCodeProcess(row.h, &dwCode));
        EXPECT_EQ(0xCDCDCDCDu, dwCode);
    }
    // A wait needs only SYNCHRONIZE; the running process never signals.
    EXPECT_EQ(DWORD(WAIT_TIMEOUT), WaitForSingleObject(hSynchronize, 0));
    for (HANDLE h : {hEvent, hSynchronize, hTerminate})
        EXPECT_TRUE(CloseHandle(h));
}

} // namespace
