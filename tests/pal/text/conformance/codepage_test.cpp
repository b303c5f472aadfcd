// MultiByteToWideChar and WideCharToMultiByte on CP_UTF8. The ANSI and OEM code pages are this
// platform's choice (UTF-8 here, a code page of the language on Windows): ../codepage_test.cpp.
#include "pal/errhandlingapi.h"
#include "pal/stringapiset.h"
#include "tests/pal/text/codepagecheck.h"
#include "tests/support/conformance.h"

#include <algorithm>
#include <string>

namespace {

using namespace std::string_literals;
using namespace orvtest::codepagecheck;

using CodePageTest = orvtest::ConformanceTest;

TEST_F(CodePageTest, MultiByteToWideCharConvertsUtf8)
{
    for (const auto& c : kFromUtf8) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.lenient, ToWide(CP_UTF8, 0, c.input));
        DWORD dwError = 0;
        EXPECT_EQ(c.fValid ? c.lenient : W("<error>"),
                  ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, c.input, &dwError));
        EXPECT_WIN32(c.fValid ? ERROR_SUCCESS : ERROR_NO_UNICODE_TRANSLATION, dwError);
    }
}

TEST_F(CodePageTest, MultiByteToWideCharTerminatorsAndBufferSizes)
{
    // Any negative length means a terminated string, and the terminator is
    // counted.
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, nullptr, 0));
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -2, nullptr, 0));
    EXPECT_EQ(1, MultiByteToWideChar(CP_UTF8, 0, "", -1, nullptr, 0));
    WCHAR buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), kSentinelW);
    // An explicit length adds no terminator; counting the terminator converts it.
    ASSERT_EQ(2, MultiByteToWideChar(CP_UTF8, 0, "abcdef", 2, buffer, 8));
    EXPECT_EQ(kSentinelW, buffer[2]);
    ASSERT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", 4, buffer, 8));
    EXPECT_EQ(0, buffer[3]);

    const char* text = "x\xC3\xA9\xF0\x9F\x8D\xB7"; // x, U+00E9, U+1F377: 4 units
                                                    // and a terminator
    std::fill(std::begin(buffer), std::end(buffer), kSentinelW);
    EXPECT_EQ(5, MultiByteToWideChar(CP_UTF8, 0, text, -1, buffer, 5));
    EXPECT_EQ(orvtest::WString(W("x\u00E9\U0001F377")), orvtest::WString(buffer));
    EXPECT_EQ(kSentinelW, buffer[5]);
    for (int size : {1, 2, 3, 4}) {
        std::fill(std::begin(buffer), std::end(buffer), kSentinelW);
        SCOPED_TRACE(size);
        EXPECT_CALL_ERROR(0, ERROR_INSUFFICIENT_BUFFER,
                          MultiByteToWideChar(CP_UTF8, 0, text, -1, buffer, size));
    }
    // Success leaves the last error alone, also after replacing invalid input.
    EXPECT_CALL_ERROR(4, orvtest::LAST_ERROR_UNTOUCHED,
                      MultiByteToWideChar(CP_UTF8, 0, "a\x80z", -1, buffer, 8));
}

TEST_F(CodePageTest, MultiByteToWideCharParametersAndFlags)
{
    WCHAR buffer[16];
    auto error = [](UINT cp, DWORD flags, LPCSTR src, int cbSrc, LPWSTR dst, int cchDst) {
        return ErrorOf([=] { return MultiByteToWideChar(cp, flags, src, cbSrc, dst, cchDst); });
    };
    const DWORD kParam = ERROR_INVALID_PARAMETER;
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, nullptr, -1, buffer, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, nullptr, 3, nullptr, 0));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, "abc", 0, buffer, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, "abc", -1, buffer, -1));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, "abc", -1, nullptr, 16));
}

TEST_F(CodePageTest, WideCharToMultiByteConvertsToUtf8)
{
    for (const auto& c : kToUtf8) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.lenient, ToNarrow(CP_UTF8, 0, c.input));
        DWORD dwError = 0;
        EXPECT_EQ(c.fValid ? c.lenient : "<error>",
                  ToNarrow(CP_UTF8, WC_ERR_INVALID_CHARS, c.input, &dwError));
        EXPECT_WIN32(c.fValid ? ERROR_SUCCESS : ERROR_NO_UNICODE_TRANSLATION, dwError);
    }
}

TEST_F(CodePageTest, WideCharToMultiByteTerminatorsAndBufferSizes)
{
    EXPECT_EQ(
        7, WideCharToMultiByte(CP_UTF8, 0, W("a\u20AC\u00E9"), -1, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(1, WideCharToMultiByte(CP_UTF8, 0, W(""), -1, nullptr, 0, nullptr, nullptr));
    char buffer[12];
    std::fill(std::begin(buffer), std::end(buffer), kSentinelA);
    ASSERT_EQ(2, WideCharToMultiByte(CP_UTF8, 0, W("abcdef"), 2, buffer, 8, nullptr, nullptr));
    EXPECT_EQ(kSentinelA, buffer[2]);
    // A length that splits a surrogate pair leaves an unpaired high surrogate.
    ASSERT_EQ(3, WideCharToMultiByte(CP_UTF8, 0, W("\U0001F377"), 1, buffer, 8, nullptr, nullptr));
    EXPECT_EQ("\xEF\xBF\xBD"s, std::string(buffer, 3));

    const WCHAR* text = W("x\u00E9\u20AC\U0001F377"); // 1 + 2 + 3 + 4 bytes and a terminator
    std::fill(std::begin(buffer), std::end(buffer), kSentinelA);
    EXPECT_EQ(11, WideCharToMultiByte(CP_UTF8, 0, text, -1, buffer, 11, nullptr, nullptr));
    EXPECT_EQ("x\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8D\xB7"s, std::string(buffer));
    EXPECT_EQ(kSentinelA, buffer[11]);
    for (int size = 1; size < 11; ++size) {
        std::fill(std::begin(buffer), std::end(buffer), kSentinelA);
        SCOPED_TRACE(size);
        EXPECT_CALL_ERROR(
            0, ERROR_INSUFFICIENT_BUFFER,
            WideCharToMultiByte(CP_UTF8, 0, text, -1, buffer, size, nullptr, nullptr));
        if (size == 5) { // only whole characters: the euro sign does not fit after "xé"
            EXPECT_EQ("x\xC3\xA9"s, std::string(buffer, 3));
            EXPECT_EQ(kSentinelA, buffer[3]);
        }
    }
}

TEST_F(CodePageTest, WideCharToMultiByteParameters)
{
    char buffer[16];
    auto error = [](UINT cp, DWORD flags, LPCWSTR src, int cchSrc, LPSTR dst, int cbDst,
                    LPCSTR defaultChar = nullptr, BOOL* pfUsed = nullptr) {
        return ErrorOf([=] {
            return WideCharToMultiByte(cp, flags, src, cchSrc, dst, cbDst, defaultChar, pfUsed);
        });
    };
    const DWORD kParam = ERROR_INVALID_PARAMETER;
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, nullptr, -1, buffer, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, W("abc"), 0, buffer, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, W("abc"), -1, buffer, -1));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, W("abc"), -1, nullptr, 16));
}

TEST_F(CodePageTest, RoundTripsEveryScalarValueClass)
{
    orvtest::WString text;
    for (char32_t cp : U"\x01\x41\x7F\x80\x7FF\x800\xD7FF\xE000\xFFFD\xFFFF"
                       U"\x10000\x1F600\x10FFFF") {
        if (cp >= 0x10000) {
            text += static_cast<WCHAR>(0xD800 + ((cp - 0x10000) >> 10));
            text += static_cast<WCHAR>(0xDC00 + ((cp - 0x10000) & 0x3FF));
        } else if (cp != 0) {
            text += static_cast<WCHAR>(cp);
        }
    }
    std::string utf8 = ToNarrow(CP_UTF8, WC_ERR_INVALID_CHARS, text);
    EXPECT_EQ(orvtest::Narrow(text), utf8);
    EXPECT_EQ(text, ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, utf8));
}

} // namespace
