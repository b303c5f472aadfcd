// wsprintfA/W and wvsprintfA/W: a conformance table of formats, arguments and expected output,
// and the 1024-character limit.
#include "pal/winuser.h"
#include "tests/support/paltest.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using WsprintfTest = orvtest::PalTest;

// Large enough for the 1024 characters, the terminator and a tail that must stay untouched.
constexpr size_t kBufferSize = 1100;
constexpr char kSentinelA = '\x5A';
constexpr WCHAR kSentinelW = 0xCCCC;

struct CaseA
{
    int line;
    std::string expected;
    int (*run)(LPSTR);
};

struct CaseW
{
    int line;
    std::u16string expected;
    int (*run)(LPWSTR);
};

#define CASE_A(expected, ...)                                                                      \
    CaseA                                                                                          \
    {                                                                                              \
        __LINE__, expected, [](LPSTR out) { return wsprintfA(out, __VA_ARGS__); }                  \
    }
#define CASE_W(expected, ...)                                                                      \
    CaseW                                                                                          \
    {                                                                                              \
        __LINE__, expected, [](LPWSTR out) { return wsprintfW(out, __VA_ARGS__); }                 \
    }

const CHAR* const kNullA = nullptr;
const WCHAR* const kNullW = nullptr;

// ---- wsprintfA ----

const CaseA kCasesA[] = {
    // Literal text and %%.
    CASE_A("", ""),
    CASE_A("plain text", "plain text"),
    CASE_A("100%", "100%%"),
    CASE_A("%%", "%%%%"),
    // Integers: 32-bit by default and with 'l'.
    CASE_A("42", "%d", 42),
    CASE_A("-42", "%i", -42),
    CASE_A("0", "%d", 0),
    CASE_A("-2147483648", "%d", INT_MIN),
    CASE_A("2147483647", "%ld", LONG{2147483647}),
    CASE_A("-1", "%ld", LONG{-1}),
    CASE_A("4294967295", "%u", -1),
    CASE_A("4294967295", "%lu", ULONG{0xFFFFFFFF}),
    CASE_A("ff", "%x", 255),
    CASE_A("FF", "%X", 255),
    CASE_A("ffffffff", "%lx", -1),
    CASE_A("DEADBEEF", "%lX", DWORD{0xDEADBEEF}),
    // 'h' takes a short.
    CASE_A("-1", "%hd", 0xFFFF),
    CASE_A("5", "%hd", 65541),
    CASE_A("65535", "%hu", -1),
    CASE_A("ffff", "%hx", -1),
    // 64-bit and pointer-sized values.
    CASE_A("123450067890A", "%I64X", ULONGLONG{0x123450067890A}),
    CASE_A("543210000000", "%I64d", LONGLONG{543210000000}),
    CASE_A("-9223372036854775808", "%I64d", LONGLONG{INT64_MIN}),
    CASE_A("FFFFFFFFFFFEDCBB", "%I64X", LONGLONG{-0x12345}),
    CASE_A("18446744073709551493", "%I64u", LONGLONG{-123}),
    CASE_A("67890A", "%I32X", 0x67890A),
    CASE_A("-12345", "%Id", INT_PTR{-12345}),
    CASE_A("123450067890a", "%Ix", INT_PTR{0x123450067890a}),
    CASE_A("fffffffffffedcbb", "%Ix", INT_PTR{-0x12345}),
    // %p: upper-case hexadecimal, 16 digits.
    CASE_A("0000000000001234", "%p", reinterpret_cast<void*>(0x1234)),
    CASE_A("FFFFFFFFFFFEDCBB", "%p", reinterpret_cast<void*>(INT_PTR{-0x12345})),
    CASE_A("[0000000000000000]", "[%p]", static_cast<void*>(nullptr)),
    // Width, flags and precision.
    CASE_A("000042", "%06d", 42),
    CASE_A("-00042", "%06d", -42),
    CASE_A("-000000001", "%010ld", LONG{-1}),
    CASE_A("    42", "%6d", 42),
    CASE_A("   -42", "%6d", -42),
    CASE_A("42    |", "%-6d|", 42),
    CASE_A("42    |", "%-06d|", 42),
    CASE_A("123456", "%3d", 123456),
    CASE_A("00000001", "%.8x", 1),
    CASE_A("DEADBEEF", "%.8X", 0xDEADBEEF),
    CASE_A("0000001f", "%08x", 31),
    CASE_A("0a", "%.2x", 10),
    CASE_A("abc", "%.2x", 0xabc),
    CASE_A("-005", "%.3d", -5),
    CASE_A("  -005", "%6.3d", -5),
    CASE_A("0", "%.0d", 0),
    CASE_A("0", "%.d", 0),
    CASE_A("7", "%.1u", 7),
    CASE_A("0xff", "%#x", 255),
    CASE_A("0XFF", "%#X", 255),
    CASE_A("0x0", "%#x", 0),
    CASE_A("0x001f", "%#06x", 31),
    CASE_A("    0x1f", "%#8x", 31),
    CASE_A("0x1f    |", "%-#8x|", 31),
    CASE_A("0x0000001f", "%#.8x", 31),
    // The trace line of the system's log.
    CASE_A("[000123] [07/04 09:05:03 042] ", "[%06d] [%02d/%02d %02d:%02d:%02d %03d] ", 123, 7, 4,
           9, 5, 3, 42),
    CASE_A("Provider::Commit() entered\n", "%s() entered\n", "Provider::Commit"),
    CASE_A("hr = 0x80070005 (-2147024891)", "hr = 0x%08lX (%ld)", LONG(0x80070005),
           LONG(0x80070005)),
    // Characters: %c narrow, %C wide (converted to UTF-8); a zero character prints nothing.
    CASE_A("x", "%c", 'x'),
    CASE_A("[x]", "[%c]", 'x'),
    CASE_A("  x|", "%3c|", 'x'),
    CASE_A("x  |", "%-3c|", 'x'),
    CASE_A("ab", "a%cb", 0),
    CASE_A("ab", "a%Cb", 0),
    CASE_A("\xC3\xA9", "%C", u'\u00E9'),
    CASE_A("\xE2\x82\xAC", "%lc", u'\u20AC'),
    CASE_A("\xE2\x82\xAC", "%wc", u'\u20AC'),
    CASE_A("y", "%hc", 'y'),
    CASE_A("y", "%hC", 'y'),
    CASE_A("\xEF\xBF\xBD", "%C", u'\xD800'),
    // Strings: %s narrow, %S wide (converted to UTF-8), %hs/%ls/%ws forced.
    CASE_A("hello", "%s", "hello"),
    CASE_A("(null)", "%s", kNullA),
    CASE_A("(null)", "%S", kNullW),
    CASE_A("(nu", "%.3s", kNullA),
    CASE_A("wide", "%S", u"wide"),
    CASE_A("wide", "%ls", u"wide"),
    CASE_A("wide", "%lS", u"wide"),
    CASE_A("wide", "%ws", u"wide"),
    CASE_A("narrow", "%hs", "narrow"),
    CASE_A("narrow", "%hS", "narrow"),
    CASE_A("h\xC3\xA9", "%S", u"h\u00E9"),
    CASE_A("\xF0\x9F\x8D\xB7", "%S", u"\U0001F377"),
    CASE_A("a\xEF\xBF\xBD"
           "b",
           "%S",
           u"a\xD800"
           u"b"),
    CASE_A("abc", "%.3s", "abcdef"),
    CASE_A("abcdef", "%.0s", "abcdef"),
    CASE_A("abcdef", "%3s", "abcdef"),
    CASE_A("   ab", "%5s", "ab"),
    CASE_A("   ab", "%05s", "ab"),
    CASE_A("ab   |", "%-5s|", "ab"),
    CASE_A("  abc", "%5.3s", "abcdef"),
    // Precision counts output bytes: a multi-byte character can be cut, as Windows does.
    CASE_A("\xE2", "%.1S", u"\u2606"),
    CASE_A("\xE2\x98", "%.2S", u"\u2606"),
    CASE_A("\xE2\x98\x86", "%.3S", u"\u2606"),
    CASE_A("\xE2\x98\x86", "%.9S", u"\u2606"),
    CASE_A("\xE2", "%.1s", "\xE2\x98\x86"),
    CASE_A(" \xE2\x98\x86", "%4S", u"\u2606"),
    // A '%' before a character that is no type prints the character; no argument is used.
    CASE_A("y", "%y"),
    CASE_A("y", "%5ly"),
    CASE_A("ld5", "%lld%d", 5),
    CASE_A("q1", "%q%d", 1),
    CASE_A("f", "%f"),
    CASE_A("%", "%-%"),
    CASE_A("abc", "abc%"),
    CASE_A("abc", "abc%-05l"),
    CASE_A("I", "%I64I"),
};

TEST_F(WsprintfTest, WsprintfAFollowsTheTable)
{
    for (const CaseA& c : kCasesA) {
        SCOPED_TRACE("line " + std::to_string(c.line));
        std::vector<char> buffer(kBufferSize, kSentinelA);
        int n = c.run(buffer.data());
        ASSERT_EQ(static_cast<int>(c.expected.size()), n);
        EXPECT_EQ(c.expected, std::string(buffer.data(), n));
        EXPECT_EQ('\0', buffer[n]);
        EXPECT_EQ(kSentinelA, buffer[n + 1]);
    }
}

// ---- wsprintfW ----

const CaseW kCasesW[] = {
    CASE_W(u"", u""),
    CASE_W(u"100%", u"100%%"),
    CASE_W(u"42", u"%d", 42),
    CASE_W(u"-2147483648", u"%d", INT_MIN),
    CASE_W(u"4294967295", u"%u", -1),
    CASE_W(u"ffffffff", u"%lx", -1),
    CASE_W(u"FFFFFFFFFFFEDCBB", u"%I64X", LONGLONG{-0x12345}),
    CASE_W(u"18446744073709551493", u"%I64u", LONGLONG{-123}),
    CASE_W(u"-12345", u"%Id", INT_PTR{-12345}),
    CASE_W(u"0000000000ABCDEF", u"%p", reinterpret_cast<void*>(0xABCDEF)),
    CASE_W(u"-000000001", u"%010ld", LONG{-1}),
    CASE_W(u"00000001", u"%.8x", 1),
    CASE_W(u"0x0000001f", u"%#.8x", 31),
    CASE_W(u"-00042", u"%06d", -42),
    CASE_W(u"[000123] [12/31 23:59:59 999] ", u"[%06d] [%02d/%02d %02d:%02d:%02d %03d] ", 123, 12,
           31, 23, 59, 59, 999),
    CASE_W(u"CProvider::Commit() entered\n", u"%s() entered\n", u"CProvider::Commit"),
    // Characters: %c wide, %C narrow.
    CASE_W(u"x", u"%c", u'x'),
    CASE_W(u"\u00E9", u"%c", u'\u00E9'),
    CASE_W(u"\u20AC", u"%wc", u'\u20AC'),
    CASE_W(u"x", u"%C", 'x'),
    CASE_W(u"x", u"%hc", 'x'),
    CASE_W(u"\u20AC", u"%lC", u'\u20AC'),
    CASE_W(u"\uFFFD", u"%C", '\xE9'), // a lone byte above 0x7F is no UTF-8 character
    CASE_W(u"ab", u"a%cb", 0),
    CASE_W(u"  x|", u"%3c|", u'x'),
    // Strings: %s wide, %S narrow (converted from UTF-8), %hs/%ls/%ws forced.
    CASE_W(u"wide", u"%s", u"wide"),
    CASE_W(u"wide", u"%ls", u"wide"),
    CASE_W(u"wide", u"%ws", u"wide"),
    CASE_W(u"wide", u"%wS", u"wide"),
    CASE_W(u"narrow", u"%S", "narrow"),
    CASE_W(u"narrow", u"%hs", "narrow"),
    CASE_W(u"(null)", u"%s", kNullW),
    CASE_W(u"(null)", u"%S", kNullA),
    CASE_W(u"(nu", u"%.3S", kNullA),
    CASE_W(u"h\u00E9", u"%S", "h\xC3\xA9"),
    CASE_W(u"\U0001F377", u"%S", "\xF0\x9F\x8D\xB7"),
    CASE_W(u"a\uFFFDb", u"%S",
           "a\xFF"
           "b"),
    CASE_W(u"\uFFFDA", u"%S",
           "\xE2\x82"
           "A"),
    CASE_W(u"abc", u"%.3s", u"abcdef"),
    CASE_W(u"h\u00E9", u"%.2S", "h\xC3\xA9llo"),
    CASE_W(u"\xD83C", u"%.1S", "\xF0\x9F\x8D\xB7"), // counts UTF-16 units
    CASE_W(u"\xD83C", u"%.1s", u"\U0001F377"),
    CASE_W(u"   h\u00E9", u"%5S", "h\xC3\xA9"), // the width counts output units too
    CASE_W(u"h\u00E9   |", u"%-5S|", "h\xC3\xA9"),
    CASE_W(u"y", u"%y"),
    CASE_W(u"ld5", u"%lld%d", 5),
    CASE_W(u"%", u"%-%"),
};

TEST_F(WsprintfTest, WsprintfWFollowsTheTable)
{
    for (const CaseW& c : kCasesW) {
        SCOPED_TRACE("line " + std::to_string(c.line));
        std::vector<WCHAR> buffer(kBufferSize, kSentinelW);
        int n = c.run(buffer.data());
        ASSERT_EQ(static_cast<int>(c.expected.size()), n);
        EXPECT_EQ(c.expected, std::u16string(buffer.data(), n));
        EXPECT_EQ(0, buffer[n]);
        EXPECT_EQ(kSentinelW, buffer[n + 1]);
    }
}

// ---- wvsprintf ----

int CallWvsprintfA(LPSTR out, LPCSTR fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int n = wvsprintfA(out, fmt, args);
    va_end(args);
    return n;
}

int CallWvsprintfW(LPWSTR out, LPCWSTR fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int n = wvsprintfW(out, fmt, args);
    va_end(args);
    return n;
}

TEST_F(WsprintfTest, WvsprintfTakesTheArgumentList)
{
    char narrow[kBufferSize];
    EXPECT_EQ(16, CallWvsprintfA(narrow, "%s=%08lX %S %c", "hr", LONG(0x8000FFFF), u"\u00E9", 'z'));
    EXPECT_STREQ("hr=8000FFFF \xC3\xA9 z", narrow);

    WCHAR wide[kBufferSize];
    EXPECT_EQ(15,
              CallWvsprintfW(wide, u"%s=%08lX %S %c", u"hr", LONG(0x8000FFFF), "\xC3\xA9", u'z'));
    EXPECT_EQ(std::u16string(u"hr=8000FFFF \u00E9 z"), std::u16string(wide));
}

// ---- The 1024-character limit ----

TEST_F(WsprintfTest, OutputStopsAt1024Characters)
{
    for (size_t length : {1u, 1022u, 1023u, 1024u, 1025u, 2000u}) {
        SCOPED_TRACE(length);
        const size_t stored = std::min<size_t>(length, 1024);

        std::string argA(length, 'a');
        std::vector<char> a(kBufferSize, kSentinelA);
        EXPECT_EQ(static_cast<int>(stored), wsprintfA(a.data(), "%s", argA.c_str()));
        EXPECT_EQ(argA.substr(0, stored), std::string(a.data()));
        EXPECT_EQ(kSentinelA, a[stored + 1]);
        EXPECT_EQ(kSentinelA, a[1025]);

        std::u16string argW(length, u'w');
        std::vector<WCHAR> w(kBufferSize, kSentinelW);
        EXPECT_EQ(static_cast<int>(stored), wsprintfW(w.data(), u"%s", argW.c_str()));
        EXPECT_EQ(argW.substr(0, stored), std::u16string(w.data()));
        EXPECT_EQ(kSentinelW, w[stored + 1]);
        EXPECT_EQ(kSentinelW, w[1025]);

        // The same through the literal text of the format.
        std::vector<char> literal(kBufferSize, kSentinelA);
        EXPECT_EQ(static_cast<int>(stored), wsprintfA(literal.data(), argA.c_str()));
        EXPECT_EQ(argA.substr(0, stored), std::string(literal.data()));
        EXPECT_EQ(kSentinelA, literal[1025]);

        // And across conversions: narrow into wsprintfW, wide into wsprintfA.
        std::vector<WCHAR> crossW(kBufferSize, kSentinelW);
        EXPECT_EQ(static_cast<int>(stored), wsprintfW(crossW.data(), u"%S", argA.c_str()));
        EXPECT_EQ(kSentinelW, crossW[1025]);
        std::vector<char> crossA(kBufferSize, kSentinelA);
        EXPECT_EQ(static_cast<int>(stored), wsprintfA(crossA.data(), "%S", argW.c_str()));
        EXPECT_EQ(kSentinelA, crossA[1025]);
    }
}

TEST_F(WsprintfTest, TheLimitCountsPrefixAndPadding)
{
    std::string prefix(1020, 'p');
    std::vector<char> a(kBufferSize, kSentinelA);
    EXPECT_EQ(1024, wsprintfA(a.data(), "%s%08x", prefix.c_str(), 0x1234));
    EXPECT_EQ(prefix + "0000", std::string(a.data()));
    EXPECT_EQ(kSentinelA, a[1025]);

    EXPECT_EQ(1024, wsprintfA(a.data(), "%2000d", 42));
    EXPECT_EQ(std::string(1024, ' '), std::string(a.data()));
    EXPECT_EQ(1024, wsprintfA(a.data(), "%-2000d", 42));
    EXPECT_EQ("42" + std::string(1022, ' '), std::string(a.data()));
    EXPECT_EQ(1024, wsprintfA(a.data(), "%.3000d", 7));
    EXPECT_EQ(std::string(1024, '0'), std::string(a.data()));
    EXPECT_EQ(kSentinelA, a[1025]);

    std::vector<WCHAR> w(kBufferSize, kSentinelW);
    EXPECT_EQ(1024, wsprintfW(w.data(), u"%99999999999999999999d", 1));
    EXPECT_EQ(kSentinelW, w[1025]);
}

TEST_F(WsprintfTest, TheLimitCanCutACharacter)
{
    // 1023 bytes, then a two-byte character of which one byte fits.
    std::u16string wide = std::u16string(1023, u'a') + u"\u00E9";
    std::vector<char> a(kBufferSize, kSentinelA);
    EXPECT_EQ(1024, wsprintfA(a.data(), "%S", wide.c_str()));
    EXPECT_EQ('\xC3', a[1023]);
    EXPECT_EQ('\0', a[1024]);

    // 1023 units, then a surrogate pair of which the high half fits.
    std::string narrow = std::string(1023, 'a') + "\xF0\x9F\x8D\xB7";
    std::vector<WCHAR> w(kBufferSize, kSentinelW);
    EXPECT_EQ(1024, wsprintfW(w.data(), u"%S", narrow.c_str()));
    EXPECT_EQ(0xD83C, w[1023]);
    EXPECT_EQ(0, w[1024]);
}

TEST_F(WsprintfTest, NullBuffersAreHandled)
{
    EXPECT_EQ(0, wsprintfA(nullptr, "%d", 1));
    EXPECT_EQ(0, wsprintfW(nullptr, u"%d", 1));
    char a[4] = "xyz";
    EXPECT_EQ(0, wsprintfA(a, nullptr));
    EXPECT_EQ('\0', a[0]);
    WCHAR w[4] = u"xyz";
    EXPECT_EQ(0, wsprintfW(w, nullptr));
    EXPECT_EQ(0, w[0]);
}

} // namespace
