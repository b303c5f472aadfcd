// Checks and text helpers shared by every test, the platform conformance cases included: they
// use only Win32 calls, so they build for Linux and for Windows alike.
#pragma once

#include "pal/errhandlingapi.h"
#include "pal/windef.h"
#include "pal/winerror.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace orvtest {

// Strings of the platform's WCHAR.
using WString = std::basic_string<WCHAR>;
using WStringView = std::basic_string_view<WCHAR>;

// A last error that no platform call sets, to see whether a call touched it.
inline constexpr DWORD LAST_ERROR_UNTOUCHED = 0xDEADBEEF;

// HRESULTs and Win32 error codes printed as 0x%08X in assertion messages.
std::string HexCode(DWORD value);
::testing::AssertionResult HrEqual(const char* expectedExpr, const char* actualExpr,
                                   HRESULT expected, HRESULT actual);

// UTF-16 <-> UTF-8 for building and comparing test data.
std::string Narrow(WStringView s);
WString Wide(std::string_view s);

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
