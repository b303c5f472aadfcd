// The base fixture of every test: a fresh machine root, captured debugger output and message
// boxes, and the platform's clock and faults reset before and after the test.
#pragma once

#include "pal/errhandlingapi.h"
#include "pal/palcontrol.h"
#include "pal/windef.h"
#include "pal/winerror.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

namespace orvtest {

class PalTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // The test's own machine root ($ORVSIM_ROOT).
    const std::filesystem::path& Root() const { return m_root; }
    // A fresh directory under the machine root.
    std::filesystem::path MakeDir(const std::string& name) const;

private:
    std::filesystem::path m_root;
};

// Polls `condition` (real time, 1 ms steps) until it holds or `timeout` passes; for waiting on
// another thread's visible effect, never for timing.
bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(20));

// A last error that no platform call sets, to see whether a call touched it.
inline constexpr DWORD LAST_ERROR_UNTOUCHED = 0xDEADBEEF;

// HRESULTs and Win32 error codes printed as 0x%08X in assertion messages.
std::string HexCode(DWORD value);
::testing::AssertionResult HrEqual(const char* expectedExpr, const char* actualExpr,
                                   HRESULT expected, HRESULT actual);

// UTF-16 <-> UTF-8 for building and comparing test data.
inline std::string Narrow(std::u16string_view s)
{
    return pal::Utf16ToUtf8(s);
}
inline std::u16string Wide(std::string_view s)
{
    return pal::Utf8ToUtf16(s);
}

} // namespace orvtest

#define EXPECT_HR(expected, actual) EXPECT_PRED_FORMAT2(::orvtest::HrEqual, expected, actual)
#define ASSERT_HR(expected, actual) ASSERT_PRED_FORMAT2(::orvtest::HrEqual, expected, actual)
// Checks a Win32 error code (e.g. GetLastError()) and prints both sides in hexadecimal.
#define EXPECT_WIN32(expected, actual)                                                             \
    EXPECT_PRED_FORMAT2(::orvtest::HrEqual, static_cast<HRESULT>(expected),                        \
                        static_cast<HRESULT>(actual))

// Calls `call` with the last error set to LAST_ERROR_UNTOUCHED and checks both its result and the
// last error it leaves.
#define EXPECT_CALL_ERROR(result, error, call)                                                     \
    do {                                                                                           \
        SetLastError(::orvtest::LAST_ERROR_UNTOUCHED);                                             \
        EXPECT_EQ(result, call);                                                                   \
        EXPECT_WIN32(error, GetLastError());                                                       \
    } while (0)
