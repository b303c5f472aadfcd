// MultiByteToWideChar and WideCharToMultiByte: the Win32 contract on UTF-8 code
// pages.
#include "pal/errhandlingapi.h"
#include "pal/stringapiset.h"
#include "tests/support/paltest.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace std::string_literals;

using CodePageTest = orvtest::PalTest;

constexpr WCHAR kSentinelW = 0xCCCC;
constexpr char kSentinelA = '\x5A';

// Converts `in` (exactly its size, no terminator) with a buffer as large as
// needed, after checking that the size query agrees. Returns the output, or
// "<error>" and the error in *pdwError.
std::u16string ToWide(UINT cp, DWORD flags, const std::string& in, DWORD* pdwError = nullptr)
{
    SetLastError(0);
    int needed = MultiByteToWideChar(cp, flags, in.data(), static_cast<int>(in.size()), nullptr, 0);
    if (pdwError)
        *pdwError = GetLastError();
    if (needed == 0)
        return u"<error>";
    std::vector<WCHAR> buffer(needed + 1, kSentinelW);
    EXPECT_EQ(needed, MultiByteToWideChar(cp, flags, in.data(), static_cast<int>(in.size()),
                                          buffer.data(), needed));
    EXPECT_EQ(kSentinelW, buffer[needed]) << "wrote past the converted units";
    return std::u16string(buffer.data(), needed);
}

std::string ToNarrow(UINT cp, DWORD flags, const std::u16string& in, DWORD* pdwError = nullptr)
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

TEST_F(CodePageTest, MultiByteToWideCharConvertsUtf8OnEveryCodePage)
{
    // Name, input, output without MB_ERR_INVALID_CHARS, valid (else that flag
    // fails).
    const std::tuple<const char*, std::string, std::u16string, bool> cases[] = {
        {"ascii", "abc", u"abc", true},
        {"two bytes", "\xC3\xA9t\xC3\xA9", u"\u00E9t\u00E9", true},
        {"three bytes", "\xE2\x82\xAC", u"\u20AC", true},
        {"four bytes to a surrogate pair", "\xF0\x9F\x8D\xB7", u"\U0001F377", true},
        {"largest scalar", "\xF4\x8F\xBF\xBF", u"\U0010FFFF", true},
        {"U+FFFF", "\xEF\xBF\xBF", u"\uFFFF", true},
        {"embedded null", "a\0b"s, u"a\0b"s, true},
        {"stray continuation byte", "a\x80z", u"a\uFFFDz", false},
        {"byte FF", "\xFF", u"\uFFFD", false},
        {"lead byte at the end", "a\xC3", u"a\uFFFD", false},
        {"truncated three-byte sequence", "\xE2\x82", u"\uFFFD", false},
        {"truncated sequence before ASCII", "\xE2\x82\x41", u"\uFFFDA", false},
        {"truncated four-byte sequence", "\xF0\x9F\x8D", u"\uFFFD", false},
        {"overlong two bytes", "\xC0\xAF", u"\uFFFD\uFFFD", false},
        {"overlong three bytes", "\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD", false},
        {"encoded surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", false},
        {"above U+10FFFF", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", false},
        {"five-byte form", "\xF8\x88\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD", false},
    };
    for (const auto& [name, input, lenient, fValid] : cases) {
        for (UINT cp : {CP_UTF8, CP_ACP, CP_OEMCP}) {
            SCOPED_TRACE(std::string(name) + ", code page " + std::to_string(cp));
            EXPECT_EQ(lenient, ToWide(cp, 0, input));
            DWORD dwError = 0;
            EXPECT_EQ(fValid ? lenient : u"<error>",
                      ToWide(cp, MB_ERR_INVALID_CHARS, input, &dwError));
            EXPECT_WIN32(fValid ? ERROR_SUCCESS : ERROR_NO_UNICODE_TRANSLATION, dwError);
        }
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
    EXPECT_EQ(std::u16string(u"x\u00E9\U0001F377"), std::u16string(buffer));
    EXPECT_EQ(kSentinelW, buffer[5]);
    for (int size : {1, 2, 3, 4}) {
        std::fill(std::begin(buffer), std::end(buffer), kSentinelW);
        SCOPED_TRACE(size);
        EXPECT_CALL_ERROR(0, ERROR_INSUFFICIENT_BUFFER,
                          MultiByteToWideChar(CP_UTF8, 0, text, -1, buffer, size));
        if (size == 3) { // only whole characters are stored: the pair does not fit
                         // after "xé"
            EXPECT_EQ(u"x\u00E9", std::u16string(buffer, 2));
            EXPECT_EQ(kSentinelW, buffer[2]);
        }
    }
    // Invalid input is reported before a short buffer.
    EXPECT_CALL_ERROR(
        0, ERROR_NO_UNICODE_TRANSLATION,
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "abcdef\xFF", -1, buffer, 2));
    // Success leaves the last error alone, also after replacing invalid input.
    EXPECT_CALL_ERROR(4, orvtest::LAST_ERROR_UNTOUCHED,
                      MultiByteToWideChar(CP_UTF8, 0, "a\x80z", -1, buffer, 8));
}

TEST_F(CodePageTest, MultiByteToWideCharParametersAndFlags)
{
    WCHAR buffer[16];
    char bytes[32] = "abc";
    auto error = [](UINT cp, DWORD flags, LPCSTR src, int cbSrc, LPWSTR dst, int cchDst) {
        return ErrorOf([=] { return MultiByteToWideChar(cp, flags, src, cbSrc, dst, cchDst); });
    };
    const DWORD kParam = ERROR_INVALID_PARAMETER;
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, nullptr, -1, buffer, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, nullptr, 3, nullptr, 0));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, "abc", 0, buffer, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, "abc", -1, buffer, -1));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, "abc", -1, nullptr, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, bytes, -1, reinterpret_cast<WCHAR*>(bytes), 16));
    EXPECT_WIN32(kParam, error(1252, 0, "abc", -1, buffer, 16)); // no such code page here
    // UTF-8 takes MB_ERR_INVALID_CHARS only; the ANSI code pages take the ANSI
    // flags too.
    for (DWORD flags : {DWORD{MB_PRECOMPOSED}, DWORD{0x4}, DWORD{0x100}})
        EXPECT_WIN32(ERROR_INVALID_FLAGS, error(CP_UTF8, flags, "abc", -1, buffer, 16)) << flags;
    for (DWORD flags : {DWORD{MB_PRECOMPOSED | 0x2}, DWORD{0x100}})
        EXPECT_WIN32(ERROR_INVALID_FLAGS, error(CP_ACP, flags, "abc", -1, buffer, 16)) << flags;
    for (UINT cp : {CP_ACP, CP_OEMCP}) {
        for (DWORD flags : {DWORD{MB_PRECOMPOSED}, DWORD{0x2}, DWORD{MB_PRECOMPOSED | 0x4},
                            DWORD{MB_PRECOMPOSED | MB_ERR_INVALID_CHARS}}) {
            EXPECT_EQ(3, MultiByteToWideChar(cp, flags, "h\xC3\xA9", -1, buffer, 8)) << flags;
            EXPECT_EQ(std::u16string(u"h\u00E9"), std::u16string(buffer));
        }
    }
}

TEST_F(CodePageTest, WideCharToMultiByteConvertsToUtf8OnEveryCodePage)
{
    // Name, input, output without WC_ERR_INVALID_CHARS, valid (else that flag
    // fails).
    const std::tuple<const char*, std::u16string, std::string, bool> cases[] = {
        {"ascii", u"abc", "abc", true},
        {"two bytes", u"\u00E9", "\xC3\xA9", true},
        {"U+07FF and U+0800", u"\u07FF\u0800", "\xDF\xBF\xE0\xA0\x80", true},
        {"three bytes", u"\u20AC", "\xE2\x82\xAC", true},
        {"surrogate pair", u"\U0001F377", "\xF0\x9F\x8D\xB7", true},
        {"largest scalar", u"\U0010FFFF", "\xF4\x8F\xBF\xBF", true},
        {"embedded null", u"a\0b"s, "a\0b"s, true},
        {"lone high surrogate", u"a\xD800z", "a\xEF\xBF\xBDz", false},
        {"lone low surrogate", u"\xDC00", "\xEF\xBF\xBD", false},
        {"high surrogate at the end", u"a\xD83C", "a\xEF\xBF\xBD", false},
        {"reversed pair", u"\xDF77\xD83C", "\xEF\xBF\xBD\xEF\xBF\xBD", false},
        {"two highs then a low", u"\xD83C\xD83C\xDF77", "\xEF\xBF\xBD\xF0\x9F\x8D\xB7", false},
    };
    for (const auto& [name, input, lenient, fValid] : cases) {
        SCOPED_TRACE(name);
        for (UINT cp : {CP_UTF8, CP_ACP, CP_OEMCP})
            EXPECT_EQ(lenient, ToNarrow(cp, 0, input)) << cp;
        DWORD dwError = 0;
        EXPECT_EQ(fValid ? lenient : "<error>",
                  ToNarrow(CP_UTF8, WC_ERR_INVALID_CHARS, input, &dwError));
        EXPECT_WIN32(fValid ? ERROR_SUCCESS : ERROR_NO_UNICODE_TRANSLATION, dwError);
    }
}

TEST_F(CodePageTest, WideCharToMultiByteTerminatorsAndBufferSizes)
{
    EXPECT_EQ(7,
              WideCharToMultiByte(CP_UTF8, 0, u"a\u20AC\u00E9", -1, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(1, WideCharToMultiByte(CP_UTF8, 0, u"", -1, nullptr, 0, nullptr, nullptr));
    char buffer[12];
    std::fill(std::begin(buffer), std::end(buffer), kSentinelA);
    ASSERT_EQ(2, WideCharToMultiByte(CP_UTF8, 0, u"abcdef", 2, buffer, 8, nullptr, nullptr));
    EXPECT_EQ(kSentinelA, buffer[2]);
    // A length that splits a surrogate pair leaves an unpaired high surrogate.
    ASSERT_EQ(3, WideCharToMultiByte(CP_UTF8, 0, u"\U0001F377", 1, buffer, 8, nullptr, nullptr));
    EXPECT_EQ("\xEF\xBF\xBD"s, std::string(buffer, 3));

    const WCHAR* text = u"x\u00E9\u20AC\U0001F377"; // 1 + 2 + 3 + 4 bytes and a terminator
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

TEST_F(CodePageTest, WideCharToMultiByteParametersAndTheDefaultCharacter)
{
    char buffer[16];
    WCHAR units[16] = u"abc";
    BOOL fUsed = FALSE;
    auto error = [](UINT cp, DWORD flags, LPCWSTR src, int cchSrc, LPSTR dst, int cbDst,
                    LPCSTR defaultChar = nullptr, BOOL* pfUsed = nullptr) {
        return ErrorOf([=] {
            return WideCharToMultiByte(cp, flags, src, cchSrc, dst, cbDst, defaultChar, pfUsed);
        });
    };
    const DWORD kParam = ERROR_INVALID_PARAMETER;
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, nullptr, -1, buffer, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, u"abc", 0, buffer, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, u"abc", -1, buffer, -1));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, u"abc", -1, nullptr, 16));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, units, -1, reinterpret_cast<char*>(units), 16));
    EXPECT_WIN32(kParam, error(437, 0, u"abc", -1, buffer, 16)); // no such code page here
    // UTF-8 has no default character; it takes WC_ERR_INVALID_CHARS only, the
    // ANSI code pages take the other flags.
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, u"abc", -1, buffer, 16, "?"));
    EXPECT_WIN32(kParam, error(CP_UTF8, 0, u"abc", -1, buffer, 16, nullptr, &fUsed));
    EXPECT_WIN32(ERROR_INVALID_FLAGS, error(CP_UTF8, WC_NO_BEST_FIT_CHARS, u"abc", -1, buffer, 16));
    EXPECT_WIN32(ERROR_INVALID_FLAGS, error(CP_ACP, WC_ERR_INVALID_CHARS, u"abc", -1, buffer, 16));
    EXPECT_WIN32(ERROR_INVALID_FLAGS, error(CP_ACP, 0x1, u"abc", -1, buffer, 16));

    // The ANSI code pages take the default character for unpaired surrogates.
    fUsed = TRUE;
    ASSERT_EQ(3,
              WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, u"ab", -1, buffer, 8, "?", &fUsed));
    EXPECT_STREQ("ab", buffer);
    EXPECT_FALSE(fUsed);
    ASSERT_EQ(4, WideCharToMultiByte(CP_ACP, 0, u"a\xD800z", -1, buffer, 8, "?", &fUsed));
    EXPECT_STREQ("a?z", buffer);
    EXPECT_TRUE(fUsed);
    fUsed = FALSE;
    ASSERT_EQ(6, WideCharToMultiByte(CP_OEMCP, 0, u"a\xDC00z", -1, buffer, 8, nullptr, &fUsed));
    EXPECT_STREQ("a\xEF\xBF\xBDz", buffer);
    EXPECT_TRUE(fUsed);
}

TEST_F(CodePageTest, RoundTripsEveryScalarValueClassAndInjectedFaultsFail)
{
    std::u16string text;
    for (char32_t cp : U"\x01\x41\x7F\x80\x7FF\x800\xD7FF\xE000\xFFFD\xFFFF"
                       U"\x10000\x1F600\x10FFFF") {
        if (cp >= 0x10000) {
            text += static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
            text += static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
        } else if (cp != 0) {
            text += static_cast<char16_t>(cp);
        }
    }
    std::string utf8 = ToNarrow(CP_UTF8, WC_ERR_INVALID_CHARS, text);
    EXPECT_EQ(orvtest::Narrow(text), utf8);
    EXPECT_EQ(text, ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, utf8));

    WCHAR wide[8];
    char narrow[8];
    pal::InjectFault("MultiByteToWideChar", ERROR_NOT_ENOUGH_MEMORY, 2);
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 8));
    EXPECT_CALL_ERROR(0, ERROR_NOT_ENOUGH_MEMORY,
                      MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 8));
    pal::InjectFault("WideCharToMultiByte", ERROR_OUTOFMEMORY);
    EXPECT_CALL_ERROR(0, ERROR_OUTOFMEMORY,
                      WideCharToMultiByte(CP_UTF8, 0, u"abc", -1, narrow, 8, nullptr, nullptr));
}

} // namespace
