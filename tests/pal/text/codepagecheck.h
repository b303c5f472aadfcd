// Conversions through MultiByteToWideChar/WideCharToMultiByte and the UTF-8 cases, for the shared
// cases (conformance/codepage_test.cpp) and this platform's own (codepage_test.cpp): Win32 calls
// only.
#pragma once

#include "pal/errhandlingapi.h"
#include "pal/stringapiset.h"
#include "tests/support/checks.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvtest::codepagecheck {

inline constexpr WCHAR kSentinelW = 0xCCCC;
inline constexpr char kSentinelA = '\x5A';

// Converts `in` (exactly its size, no terminator) with a buffer as large as needed, after
// checking that the size query agrees. Returns the output, or "<error>" and the error in
// *pdwError.
inline WString ToWide(UINT cp, DWORD flags, const std::string& in, DWORD* pdwError = nullptr)
{
    SetLastError(0);
    int needed = MultiByteToWideChar(cp, flags, in.data(), static_cast<int>(in.size()), nullptr, 0);
    if (pdwError)
        *pdwError = GetLastError();
    if (needed == 0)
        return W("<error>");
    std::vector<WCHAR> buffer(needed + 1, kSentinelW);
    EXPECT_EQ(needed, MultiByteToWideChar(cp, flags, in.data(), static_cast<int>(in.size()),
                                          buffer.data(), needed));
    EXPECT_EQ(kSentinelW, buffer[needed]) << "wrote past the converted units";
    return WString(buffer.data(), needed);
}

inline std::string ToNarrow(UINT cp, DWORD flags, const WString& in, DWORD* pdwError = nullptr)
{
    SetLastError(0);
    int needed = WideCharToMultiByte(cp, flags, in.data(), static_cast<int>(in.size()), nullptr, 0,
                                     nullptr, nullptr);
    if (pdwError)
        *pdwError = GetLastError();
    if (needed == 0)
        return "<error>";
    std::vector<char> buffer(needed + 1, kSentinelA);
    EXPECT_EQ(needed, WideCharToMultiByte(cp, flags, in.data(), static_cast<int>(in.size()),
                                          buffer.data(), needed, nullptr, nullptr));
    EXPECT_EQ(kSentinelA, buffer[needed]) << "wrote past the converted bytes";
    return std::string(buffer.data(), needed);
}

// The error of a call expected to fail, or ERROR_SUCCESS when it did not.
template <typename Call>
DWORD ErrorOf(Call call)
{
    SetLastError(0);
    return call() == 0 ? GetLastError() : ERROR_SUCCESS;
}

// UTF-8 in, UTF-16 out without MB_ERR_INVALID_CHARS; valid, or else that flag fails.
struct FromUtf8Case
{
    const char* name;
    std::string input;
    WString lenient;
    bool fValid;
};
inline const FromUtf8Case kFromUtf8[] = {
    {"ascii", "abc", W("abc"), true},
    {"two bytes", "\xC3\xA9t\xC3\xA9", W("\u00E9t\u00E9"), true},
    {"three bytes", "\xE2\x82\xAC", W("\u20AC"), true},
    {"four bytes to a surrogate pair", "\xF0\x9F\x8D\xB7", W("\U0001F377"), true},
    {"largest scalar", "\xF4\x8F\xBF\xBF", W("\U0010FFFF"), true},
    {"U+FFFF", "\xEF\xBF\xBF", W("\uFFFF"), true},
    {"embedded null", std::string("a\0b", 3), WString(W("a\0b"), 3), true},
    {"stray continuation byte", "a\x80z", W("a\uFFFDz"), false},
    {"byte FF", "\xFF", W("\uFFFD"), false},
    {"lead byte at the end", "a\xC3", W("a\uFFFD"), false},
    {"truncated three-byte sequence", "\xE2\x82", W("\uFFFD"), false},
    {"truncated sequence before ASCII", "\xE2\x82\x41", W("\uFFFDA"), false},
    {"truncated four-byte sequence", "\xF0\x9F\x8D", W("\uFFFD"), false},
    {"overlong two bytes", "\xC0\xAF", W("\uFFFD\uFFFD"), false},
    {"five-byte form", "\xF8\x88\x80\x80\x80", W("\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"), false},
};
// Sequences whose lead byte is valid but whose second byte is not: one U+FFFD for each byte (the
// maximal subparts, as Unicode recommends); Wine gives fewer.
inline const FromUtf8Case kFromUtf8Subparts[] = {
    {"overlong three bytes", "\xE0\x80\xAF", W("\uFFFD\uFFFD\uFFFD"), false},
    {"encoded surrogate", "\xED\xA0\x80", W("\uFFFD\uFFFD\uFFFD"), false},
    {"above U+10FFFF", "\xF4\x90\x80\x80", W("\uFFFD\uFFFD\uFFFD\uFFFD"), false},
};

// UTF-16 in, UTF-8 out without WC_ERR_INVALID_CHARS; valid, or else that flag fails.
struct ToUtf8Case
{
    const char* name;
    WString input;
    std::string lenient;
    bool fValid;
};
inline const ToUtf8Case kToUtf8[] = {
    {"ascii", W("abc"), "abc", true},
    {"two bytes", W("\u00E9"), "\xC3\xA9", true},
    {"U+07FF and U+0800", W("\u07FF\u0800"), "\xDF\xBF\xE0\xA0\x80", true},
    {"three bytes", W("\u20AC"), "\xE2\x82\xAC", true},
    {"surrogate pair", W("\U0001F377"), "\xF0\x9F\x8D\xB7", true},
    {"largest scalar", W("\U0010FFFF"), "\xF4\x8F\xBF\xBF", true},
    {"embedded null", WString(W("a\0b"), 3), std::string("a\0b", 3), true},
    {"lone high surrogate", W("a\xD800z"), "a\xEF\xBF\xBDz", false},
    {"lone low surrogate", W("\xDC00"), "\xEF\xBF\xBD", false},
    {"high surrogate at the end", W("a\xD83C"), "a\xEF\xBF\xBD", false},
    {"reversed pair", W("\xDF77\xD83C"), "\xEF\xBF\xBD\xEF\xBF\xBD", false},
    {"two highs then a low", W("\xD83C\xD83C\xDF77"), "\xEF\xBF\xBD\xF0\x9F\x8D\xB7", false},
};

} // namespace orvtest::codepagecheck
