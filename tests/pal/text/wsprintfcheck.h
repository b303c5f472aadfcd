// Checks of one wsprintf format, for the shared cases (conformance/wsprintf_test.cpp) and this
// platform's own (wsprintf_test.cpp): Win32 calls only.
#pragma once

#include "pal/winuser.h"
#include "tests/support/checks.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <string>
#include <vector>

namespace orvtest::wsprintfcheck {

// Larger than wsprintf's 1024 characters and terminator, so that a tail must stay untouched.
inline constexpr size_t kBufferSize = 1100;
inline constexpr char kSentinelA = '\x5A';
inline constexpr WCHAR kSentinelW = 0xCCCC;

template <typename... Args>
int CallWsprintf(LPSTR out, LPCSTR fmt, Args... args)
{
    return wsprintfA(out, fmt, args...);
}
template <typename... Args>
int CallWsprintf(LPWSTR out, LPCWSTR fmt, Args... args)
{
    return wsprintfW(out, fmt, args...);
}
inline int CallWvsprintf(LPSTR out, LPCSTR fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int n = wvsprintfA(out, fmt, args);
    va_end(args);
    return n;
}
inline int CallWvsprintf(LPWSTR out, LPCWSTR fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int n = wvsprintfW(out, fmt, args);
    va_end(args);
    return n;
}

// Formats through wsprintf and through wvsprintf, and checks the count, the text, the
// terminator and the untouched tail. The trace names the line of the case.
template <typename Ch, typename... Args>
void ExpectFormat(const char* file, int line, const std::basic_string<Ch>& expected, const Ch* fmt,
                  Args... args)
{
    testing::ScopedTrace trace(file, line, "");
    const Ch kSentinel = sizeof(Ch) == 1 ? Ch(kSentinelA) : Ch(kSentinelW);
    for (bool fList : {false, true}) {
        std::vector<Ch> buffer(kBufferSize, kSentinel);
        int n = fList ? CallWvsprintf(buffer.data(), fmt, args...)
                      : CallWsprintf(buffer.data(), fmt, args...);
        ASSERT_EQ(static_cast<int>(expected.size()), n) << (fList ? "wvsprintf" : "wsprintf");
        EXPECT_EQ(expected, std::basic_string<Ch>(buffer.data(), n));
        EXPECT_EQ(Ch(0), buffer[n]);
        EXPECT_EQ(kSentinel, buffer[n + 1]);
    }
}

} // namespace orvtest::wsprintfcheck

#define EXPECT_A(...) ::orvtest::wsprintfcheck::ExpectFormat<char>(__FILE__, __LINE__, __VA_ARGS__)
#define EXPECT_W(...) ::orvtest::wsprintfcheck::ExpectFormat<WCHAR>(__FILE__, __LINE__, __VA_ARGS__)
