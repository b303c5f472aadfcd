// MultiByteToWideChar and WideCharToMultiByte: the Win32 contract on UTF-8 code pages.
#include "pal/errhandlingapi.h"
#include "pal/stringapiset.h"
#include "tests/support/paltest.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;

using CodePageTest = orvtest::PalTest;

constexpr WCHAR kSentinelW = 0xCCCC;
constexpr char kSentinelA = '\x5A';

// Converts `in` (exactly its size, no terminator) with a buffer as large as needed, after
// checking that the size query agrees. Returns the output, or records the error in *pdwError.
std::u16string ToWide(UINT cp, DWORD flags, const std::string& in, DWORD* pdwError = nullptr)
{
    SetLastError(0);
    int needed = MultiByteToWideChar(cp, flags, in.data(), static_cast<int>(in.size()), nullptr, 0);
    if (needed == 0) {
        if (pdwError)
            *pdwError = GetLastError();
        return u"<error>";
    }
    std::vector<WCHAR> buffer(needed + 1, kSentinelW);
    int written = MultiByteToWideChar(cp, flags, in.data(), static_cast<int>(in.size()),
                                      buffer.data(), needed);
    EXPECT_EQ(needed, written);
    EXPECT_EQ(kSentinelW, buffer[needed]) << "wrote past the converted units";
    return std::u16string(buffer.data(), written);
}

std::string ToNarrow(UINT cp, DWORD flags, const std::u16string& in, DWORD* pdwError = nullptr)
{
    SetLastError(0);
    int needed = WideCharToMultiByte(cp, flags, in.data(), static_cast<int>(in.size()), nullptr, 0,
                                     nullptr, nullptr);
    if (needed == 0) {
        if (pdwError)
            *pdwError = GetLastError();
        return "<error>";
    }
    std::vector<char> buffer(needed + 1, kSentinelA);
    int written = WideCharToMultiByte(cp, flags, in.data(), static_cast<int>(in.size()),
                                      buffer.data(), needed, nullptr, nullptr);
    EXPECT_EQ(needed, written);
    EXPECT_EQ(kSentinelA, buffer[needed]) << "wrote past the converted bytes";
    return std::string(buffer.data(), written);
}

// ---- UTF-8 to UTF-16 ----

struct MbCase
{
    const char* name;
    std::string input;
    std::u16string lenient; // without MB_ERR_INVALID_CHARS
    bool fValid;            // else MB_ERR_INVALID_CHARS fails
};

const MbCase kMbCases[] = {
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
    {"truncated sequence before ASCII",
     "\xE2\x82"
     "A",
     u"\uFFFDA", false},
    {"truncated four-byte sequence", "\xF0\x9F\x8D", u"\uFFFD", false},
    {"overlong two bytes", "\xC0\xAF", u"\uFFFD\uFFFD", false},
    {"overlong three bytes", "\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD", false},
    {"encoded surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", false},
    {"above U+10FFFF", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", false},
    {"five-byte form", "\xF8\x88\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD", false},
};

TEST_F(CodePageTest, MultiByteToWideCharConvertsUtf8)
{
    for (const MbCase& c : kMbCases) {
        for (UINT cp : {CP_UTF8, CP_ACP, CP_OEMCP}) {
            SCOPED_TRACE(std::string(c.name) + ", code page " + std::to_string(cp));
            EXPECT_EQ(c.lenient, ToWide(cp, 0, c.input));
            DWORD dwError = 0;
            std::u16string strict = ToWide(cp, MB_ERR_INVALID_CHARS, c.input, &dwError);
            if (c.fValid) {
                EXPECT_EQ(c.lenient, strict);
            } else {
                EXPECT_EQ(u"<error>", strict);
                EXPECT_WIN32(ERROR_NO_UNICODE_TRANSLATION, dwError);
            }
        }
    }
}

TEST_F(CodePageTest, MultiByteToWideCharWithMinusOneIncludesTheTerminator)
{
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, nullptr, 0));
    EXPECT_EQ(1, MultiByteToWideChar(CP_UTF8, 0, "", -1, nullptr, 0));
    // Any negative length means a terminated string, as on Windows.
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -2, nullptr, 0));

    WCHAR buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), kSentinelW);
    ASSERT_EQ(5, MultiByteToWideChar(CP_UTF8, 0,
                                     "\xF0\x9F\x8D\xB7"
                                     "ab",
                                     -1, buffer, 8));
    EXPECT_EQ(std::u16string(u"\U0001F377ab"), std::u16string(buffer));
    EXPECT_EQ(0, buffer[4]);
    EXPECT_EQ(kSentinelW, buffer[5]);
}

TEST_F(CodePageTest, MultiByteToWideCharWithExplicitLengthAddsNoTerminator)
{
    WCHAR buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), kSentinelW);
    ASSERT_EQ(2, MultiByteToWideChar(CP_UTF8, 0, "abcdef", 2, buffer, 8));
    EXPECT_EQ(u'a', buffer[0]);
    EXPECT_EQ(u'b', buffer[1]);
    EXPECT_EQ(kSentinelW, buffer[2]);
    // Counting the terminator converts it.
    ASSERT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", 4, buffer, 8));
    EXPECT_EQ(0, buffer[3]);
}

TEST_F(CodePageTest, MultiByteToWideCharBufferSizes)
{
    const char* text = "x\xC3\xA9\xF0\x9F\x8D\xB7"; // x, U+00E9, U+1F377: 4 units and a terminator
    EXPECT_EQ(5, MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0));

    WCHAR exact[5];
    EXPECT_EQ(5, MultiByteToWideChar(CP_UTF8, 0, text, -1, exact, 5));
    EXPECT_EQ(std::u16string(u"x\u00E9\U0001F377"), std::u16string(exact));

    for (int size : {1, 2, 3, 4}) {
        SCOPED_TRACE(size);
        WCHAR small[5] = {};
        SetLastError(0);
        EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, 0, text, -1, small, size));
        EXPECT_WIN32(ERROR_INSUFFICIENT_BUFFER, GetLastError());
    }
    // Only whole characters are stored in a buffer too small: the pair does not fit in 2.
    WCHAR partial[4] = {kSentinelW, kSentinelW, kSentinelW, kSentinelW};
    EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, 0, text, -1, partial, 3));
    EXPECT_EQ(u'x', partial[0]);
    EXPECT_EQ(u'\u00E9', partial[1]);
    EXPECT_EQ(kSentinelW, partial[2]);
    EXPECT_EQ(kSentinelW, partial[3]);
}

TEST_F(CodePageTest, MultiByteToWideCharRejectsInvalidParameters)
{
    WCHAR buffer[16];
    char bytes[32] = "abc";
    struct Case
    {
        const char* name;
        UINT cp;
        DWORD flags;
        const char* src;
        int cbSrc;
        WCHAR* dst;
        int cchDst;
        DWORD dwError;
    };
    const Case cases[] = {
        {"NULL source", CP_UTF8, 0, nullptr, -1, buffer, 16, ERROR_INVALID_PARAMETER},
        {"NULL source, size query", CP_UTF8, 0, nullptr, 3, nullptr, 0, ERROR_INVALID_PARAMETER},
        {"zero source length", CP_UTF8, 0, "abc", 0, buffer, 16, ERROR_INVALID_PARAMETER},
        {"negative output size", CP_UTF8, 0, "abc", -1, buffer, -1, ERROR_INVALID_PARAMETER},
        {"NULL output with a size", CP_UTF8, 0, "abc", -1, nullptr, 16, ERROR_INVALID_PARAMETER},
        {"same buffer", CP_UTF8, 0, bytes, -1, reinterpret_cast<WCHAR*>(bytes), 16,
         ERROR_INVALID_PARAMETER},
        {"unsupported code page", 1252, 0, "abc", -1, buffer, 16, ERROR_INVALID_PARAMETER},
        {"UTF-8 with MB_PRECOMPOSED", CP_UTF8, MB_PRECOMPOSED, "abc", -1, buffer, 16,
         ERROR_INVALID_FLAGS},
        {"UTF-8 with MB_USEGLYPHCHARS", CP_UTF8, 0x4, "abc", -1, buffer, 16, ERROR_INVALID_FLAGS},
        {"ACP with composite and precomposed", CP_ACP, MB_PRECOMPOSED | 0x2, "abc", -1, buffer, 16,
         ERROR_INVALID_FLAGS},
        {"ACP with an unknown flag", CP_ACP, 0x100, "abc", -1, buffer, 16, ERROR_INVALID_FLAGS},
        {"UTF-8 with an unknown flag", CP_UTF8, 0x100, "abc", -1, buffer, 16, ERROR_INVALID_FLAGS},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SetLastError(0);
        EXPECT_EQ(0, MultiByteToWideChar(c.cp, c.flags, c.src, c.cbSrc, c.dst, c.cchDst));
        EXPECT_WIN32(c.dwError, GetLastError());
    }
}

TEST_F(CodePageTest, MultiByteToWideCharAcceptsTheAnsiFlagsOnTheAnsiCodePages)
{
    WCHAR buffer[8];
    for (UINT cp : {CP_ACP, CP_OEMCP}) {
        for (DWORD flags : {DWORD{MB_PRECOMPOSED}, DWORD{0x2}, DWORD{MB_PRECOMPOSED | 0x4},
                            DWORD{MB_PRECOMPOSED | MB_ERR_INVALID_CHARS}}) {
            SCOPED_TRACE(flags);
            EXPECT_EQ(3, MultiByteToWideChar(cp, flags, "h\xC3\xA9", -1, buffer, 8));
            EXPECT_EQ(std::u16string(u"h\u00E9"), std::u16string(buffer));
        }
    }
}

TEST_F(CodePageTest, MultiByteToWideCharLeavesTheLastErrorOnSuccess)
{
    WCHAR buffer[8];
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0,
                                     "a\x80"
                                     "b",
                                     -1, buffer, 8));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, GetLastError());
}

TEST_F(CodePageTest, InvalidInputIsReportedBeforeAShortBuffer)
{
    WCHAR buffer[2];
    SetLastError(0);
    EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "abcdef\xFF", -1, buffer, 2));
    EXPECT_WIN32(ERROR_NO_UNICODE_TRANSLATION, GetLastError());
}

// ---- UTF-16 to UTF-8 ----

struct WcCase
{
    const char* name;
    std::u16string input;
    std::string lenient; // without WC_ERR_INVALID_CHARS
    bool fValid;
};

const WcCase kWcCases[] = {
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

TEST_F(CodePageTest, WideCharToMultiByteConvertsToUtf8)
{
    for (const WcCase& c : kWcCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.lenient, ToNarrow(CP_UTF8, 0, c.input));
        EXPECT_EQ(c.lenient, ToNarrow(CP_ACP, 0, c.input));
        EXPECT_EQ(c.lenient, ToNarrow(CP_OEMCP, 0, c.input));
        DWORD dwError = 0;
        std::string strict = ToNarrow(CP_UTF8, WC_ERR_INVALID_CHARS, c.input, &dwError);
        if (c.fValid) {
            EXPECT_EQ(c.lenient, strict);
        } else {
            EXPECT_EQ("<error>", strict);
            EXPECT_WIN32(ERROR_NO_UNICODE_TRANSLATION, dwError);
        }
    }
}

TEST_F(CodePageTest, WideCharToMultiByteWithMinusOneIncludesTheTerminator)
{
    EXPECT_EQ(7,
              WideCharToMultiByte(CP_UTF8, 0, u"a\u20AC\u00E9", -1, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(1, WideCharToMultiByte(CP_UTF8, 0, u"", -1, nullptr, 0, nullptr, nullptr));

    char buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), kSentinelA);
    ASSERT_EQ(5, WideCharToMultiByte(CP_UTF8, 0, u"\U0001F377", -1, buffer, 8, nullptr, nullptr));
    EXPECT_EQ("\xF0\x9F\x8D\xB7"s, std::string(buffer));
    EXPECT_EQ(kSentinelA, buffer[5]);
}

TEST_F(CodePageTest, WideCharToMultiByteWithExplicitLengthAddsNoTerminator)
{
    char buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), kSentinelA);
    ASSERT_EQ(2, WideCharToMultiByte(CP_UTF8, 0, u"abcdef", 2, buffer, 8, nullptr, nullptr));
    EXPECT_EQ('a', buffer[0]);
    EXPECT_EQ('b', buffer[1]);
    EXPECT_EQ(kSentinelA, buffer[2]);
    // A length that splits a surrogate pair leaves an unpaired high surrogate.
    ASSERT_EQ(3, WideCharToMultiByte(CP_UTF8, 0, u"\U0001F377", 1, buffer, 8, nullptr, nullptr));
    EXPECT_EQ("\xEF\xBF\xBD"s, std::string(buffer, 3));
}

TEST_F(CodePageTest, WideCharToMultiByteBufferSizes)
{
    const WCHAR* text = u"x\u00E9\u20AC\U0001F377"; // 1 + 2 + 3 + 4 bytes and a terminator
    EXPECT_EQ(11, WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr));

    char exact[11];
    EXPECT_EQ(11, WideCharToMultiByte(CP_UTF8, 0, text, -1, exact, 11, nullptr, nullptr));
    EXPECT_EQ("x\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8D\xB7"s, std::string(exact));

    for (int size = 1; size < 11; ++size) {
        SCOPED_TRACE(size);
        char small[11];
        SetLastError(0);
        EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, 0, text, -1, small, size, nullptr, nullptr));
        EXPECT_WIN32(ERROR_INSUFFICIENT_BUFFER, GetLastError());
    }
    // Only whole characters are stored: the euro sign does not fit in 4 bytes after "xé".
    char partial[6];
    std::fill(std::begin(partial), std::end(partial), kSentinelA);
    EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, 0, text, -1, partial, 5, nullptr, nullptr));
    EXPECT_EQ("x\xC3\xA9"s, std::string(partial, 3));
    EXPECT_EQ(kSentinelA, partial[3]);
}

TEST_F(CodePageTest, WideCharToMultiByteRejectsInvalidParameters)
{
    char buffer[16];
    WCHAR units[16] = u"abc";
    char defaultChar = '?';
    BOOL fUsed = FALSE;
    struct Case
    {
        const char* name;
        UINT cp;
        DWORD flags;
        const WCHAR* src;
        int cchSrc;
        char* dst;
        int cbDst;
        const char* defaultChar;
        BOOL* pfUsed;
        DWORD dwError;
    };
    const Case cases[] = {
        {"NULL source", CP_UTF8, 0, nullptr, -1, buffer, 16, nullptr, nullptr,
         ERROR_INVALID_PARAMETER},
        {"zero source length", CP_UTF8, 0, u"abc", 0, buffer, 16, nullptr, nullptr,
         ERROR_INVALID_PARAMETER},
        {"negative output size", CP_UTF8, 0, u"abc", -1, buffer, -1, nullptr, nullptr,
         ERROR_INVALID_PARAMETER},
        {"NULL output with a size", CP_UTF8, 0, u"abc", -1, nullptr, 16, nullptr, nullptr,
         ERROR_INVALID_PARAMETER},
        {"same buffer", CP_UTF8, 0, units, -1, reinterpret_cast<char*>(units), 16, nullptr, nullptr,
         ERROR_INVALID_PARAMETER},
        {"unsupported code page", 437, 0, u"abc", -1, buffer, 16, nullptr, nullptr,
         ERROR_INVALID_PARAMETER},
        {"UTF-8 with a default character", CP_UTF8, 0, u"abc", -1, buffer, 16, &defaultChar,
         nullptr, ERROR_INVALID_PARAMETER},
        {"UTF-8 with a used-default flag", CP_UTF8, 0, u"abc", -1, buffer, 16, nullptr, &fUsed,
         ERROR_INVALID_PARAMETER},
        {"UTF-8 with WC_NO_BEST_FIT_CHARS", CP_UTF8, WC_NO_BEST_FIT_CHARS, u"abc", -1, buffer, 16,
         nullptr, nullptr, ERROR_INVALID_FLAGS},
        {"ACP with WC_ERR_INVALID_CHARS", CP_ACP, WC_ERR_INVALID_CHARS, u"abc", -1, buffer, 16,
         nullptr, nullptr, ERROR_INVALID_FLAGS},
        {"ACP with an unknown flag", CP_ACP, 0x1, u"abc", -1, buffer, 16, nullptr, nullptr,
         ERROR_INVALID_FLAGS},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SetLastError(0);
        EXPECT_EQ(0, WideCharToMultiByte(c.cp, c.flags, c.src, c.cchSrc, c.dst, c.cbDst,
                                         c.defaultChar, c.pfUsed));
        EXPECT_WIN32(c.dwError, GetLastError());
    }
}

TEST_F(CodePageTest, AnsiCodePageTakesTheDefaultCharacterForUnpairedSurrogates)
{
    char buffer[8];
    BOOL fUsed = TRUE;
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

TEST_F(CodePageTest, RoundTripsEveryScalarValueClass)
{
    std::u16string text;
    for (char32_t cp : {U'\x01', U'A', U'\x7F', U'\x80', U'\x7FF', U'\x800', U'\xD7FF', U'\xE000',
                        U'\xFFFD', U'\xFFFF', U'\x10000', U'\x1F600', U'\x10FFFF'}) {
        if (cp >= 0x10000) {
            text += static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
            text += static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
        } else {
            text += static_cast<char16_t>(cp);
        }
    }
    std::string utf8 = ToNarrow(CP_UTF8, WC_ERR_INVALID_CHARS, text);
    EXPECT_EQ(orvtest::Narrow(text), utf8);
    EXPECT_EQ(text, ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, utf8));
}

TEST_F(CodePageTest, InjectedFaultsFailTheConversions)
{
    WCHAR wide[8];
    char narrow[8];
    pal::InjectFault("MultiByteToWideChar", ERROR_NOT_ENOUGH_MEMORY, 2);
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 8));
    EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 8));
    EXPECT_WIN32(ERROR_NOT_ENOUGH_MEMORY, GetLastError());

    pal::InjectFault("WideCharToMultiByte", ERROR_OUTOFMEMORY);
    EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, 0, u"abc", -1, narrow, 8, nullptr, nullptr));
    EXPECT_WIN32(ERROR_OUTOFMEMORY, GetLastError());
}

} // namespace
