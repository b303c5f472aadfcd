// wsprintfA/W and wvsprintfA/W: formats, arguments and expected output, and the
// 1024-character limit.
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

const CHAR* const kNullA = nullptr;
const WCHAR* const kNullW = nullptr;

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
int CallWvsprintf(LPSTR out, LPCSTR fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int n = wvsprintfA(out, fmt, args);
    va_end(args);
    return n;
}
int CallWvsprintf(LPWSTR out, LPCWSTR fmt, ...)
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
void ExpectFormat(int line, const std::basic_string<Ch>& expected, const Ch* fmt, Args... args)
{
    testing::ScopedTrace trace(__FILE__, line, "");
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
#define EXPECT_A(...) ExpectFormat<char>(__LINE__, __VA_ARGS__)
#define EXPECT_W(...) ExpectFormat<char16_t>(__LINE__, __VA_ARGS__)

TEST_F(WsprintfTest, LiteralsIntegersAndPointers)
{
    EXPECT_A("", "");
    EXPECT_A("plain text", "plain text");
    EXPECT_A("100%", "100%%");
    EXPECT_A("%%", "%%%%");
    // Integers: 32-bit by default and with 'l'.
    EXPECT_A("42", "%d", 42);
    EXPECT_A("-42", "%i", -42);
    EXPECT_A("-2147483648", "%d", INT_MIN);
    EXPECT_A("-1", "%ld", LONG{-1});
    EXPECT_A("4294967295", "%u", -1);
    EXPECT_A("ff", "%x", 255);
    EXPECT_A("ffffffff", "%lx", -1);
    EXPECT_A("DEADBEEF", "%lX", DWORD{0xDEADBEEF});
    // 'h' takes a short.
    EXPECT_A("-1", "%hd", 0xFFFF);
    EXPECT_A("65535", "%hu", -1);
    EXPECT_A("ffff", "%hx", -1);
    // 64-bit and pointer-sized values.
    EXPECT_A("123450067890A", "%I64X", ULONGLONG{0x123450067890A});
    EXPECT_A("-9223372036854775808", "%I64d", LONGLONG{INT64_MIN});
    EXPECT_A("FFFFFFFFFFFEDCBB", "%I64X", LONGLONG{-0x12345});
    EXPECT_A("18446744073709551493", "%I64u", LONGLONG{-123});
    EXPECT_A("67890A", "%I32X", 0x67890A);
    EXPECT_A("-12345", "%Id", INT_PTR{-12345});
    EXPECT_A("fffffffffffedcbb", "%Ix", INT_PTR{-0x12345});
    // %p: upper-case hexadecimal, 16 digits.
    EXPECT_A("0000000000001234", "%p", reinterpret_cast<void*>(0x1234));
    EXPECT_A("FFFFFFFFFFFEDCBB", "%p", reinterpret_cast<void*>(INT_PTR{-0x12345}));
    // The same code formats the wide strings.
    EXPECT_W(u"100%", u"100%%");
    EXPECT_W(u"ffffffff", u"%lx", -1);
    EXPECT_W(u"FFFFFFFFFFFEDCBB", u"%I64X", LONGLONG{-0x12345});
    EXPECT_W(u"0000000000ABCDEF", u"%p", reinterpret_cast<void*>(0xABCDEF));
}

TEST_F(WsprintfTest, WidthFlagsAndPrecision)
{
    EXPECT_A("000042", "%06d", 42);
    EXPECT_A("-00042", "%06d", -42);
    EXPECT_A("   -42", "%6d", -42);
    EXPECT_A("42    |", "%-6d|", 42);
    EXPECT_A("123456", "%3d", 123456);
    EXPECT_A("00000001", "%.8x", 1);
    EXPECT_A("0000001f", "%08x", 31);
    EXPECT_A("abc", "%.2x", 0xabc);
    EXPECT_A("-005", "%.3d", -5);
    EXPECT_A("  -005", "%6.3d", -5);
    EXPECT_A("0", "%.0d", 0);
    EXPECT_A("0xff", "%#x", 255);
    EXPECT_A("0x0", "%#x", 0);
    EXPECT_A("0x001f", "%#06x", 31);
    EXPECT_A("    0x1f", "%#8x", 31);
    EXPECT_A("0x1f    |", "%-#8x|", 31);
    EXPECT_A("0x0000001f", "%#.8x", 31);
    EXPECT_W(u"0x0000001f", u"%#.8x", 31);
    // The trace lines of the system's log.
    EXPECT_A("[000123] [07/04 09:05:03 042] ", "[%06d] [%02d/%02d %02d:%02d:%02d %03d] ", 123, 7, 4,
             9, 5, 3, 42);
    EXPECT_A("hr = 0x80070005 (-2147024891)", "hr = 0x%08lX (%ld)", LONG(0x80070005),
             LONG(0x80070005));
    EXPECT_W(u"[000123] [12/31 23:59:59 999] ", u"[%06d] [%02d/%02d %02d:%02d:%02d %03d] ", 123, 12,
             31, 23, 59, 59, 999);
    EXPECT_W(u"CProvider::Commit() entered\n", u"%s() entered\n", u"CProvider::Commit");
}

TEST_F(WsprintfTest, CharactersInTheCallersWidthOrTheOther)
{
    // wsprintfA: %c narrow, %C wide (converted to UTF-8); a zero character prints nothing.
    EXPECT_A("[x]", "[%c]", 'x');
    EXPECT_A("  x|", "%3c|", 'x');
    EXPECT_A("x  |", "%-3c|", 'x');
    EXPECT_A("ab", "a%cb", 0);
    EXPECT_A("ab", "a%Cb", 0);
    EXPECT_A("\xC3\xA9", "%C", u'\u00E9');
    EXPECT_A("\xE2\x82\xAC", "%lc", u'\u20AC');
    EXPECT_A("\xE2\x82\xAC", "%wc", u'\u20AC');
    EXPECT_A("y", "%hc", 'y');
    EXPECT_A("\xEF\xBF\xBD", "%C", u'\xD800');
    // wsprintfW: %c wide, %C narrow.
    EXPECT_W(u"\u00E9", u"%c", u'\u00E9');
    EXPECT_W(u"\u20AC", u"%wc", u'\u20AC');
    EXPECT_W(u"x", u"%C", 'x');
    EXPECT_W(u"x", u"%hc", 'x');
    EXPECT_W(u"\u20AC", u"%lC", u'\u20AC');
    EXPECT_W(u"\uFFFD", u"%C", '\xE9'); // a lone byte above 0x7F is no UTF-8 character
    EXPECT_W(u"ab", u"a%cb", 0);
    EXPECT_W(u"  x|", u"%3c|", u'x');
}

TEST_F(WsprintfTest, StringsInTheCallersWidthOrTheOther)
{
    // wsprintfA: %s narrow, %S wide (converted to UTF-8), %hs/%ls/%ws forced.
    EXPECT_A("Provider::Commit() entered\n", "%s() entered\n", "Provider::Commit");
    EXPECT_A("(null)", "%s", kNullA);
    EXPECT_A("(null)", "%S", kNullW);
    EXPECT_A("(nu", "%.3s", kNullA);
    EXPECT_A("wide", "%S", u"wide");
    EXPECT_A("wide", "%ls", u"wide");
    EXPECT_A("wide", "%ws", u"wide");
    EXPECT_A("narrow", "%hs", "narrow");
    EXPECT_A("h\xC3\xA9", "%S", u"h\u00E9");
    EXPECT_A("\xF0\x9F\x8D\xB7", "%S", u"\U0001F377");
    EXPECT_A("a\xEF\xBF\xBD\x62", "%S", u"a\xD800\x62");
    EXPECT_A("abc", "%.3s", "abcdef");
    EXPECT_A("abcdef", "%.0s", "abcdef");
    EXPECT_A("abcdef", "%3s", "abcdef");
    EXPECT_A("   ab", "%5s", "ab");
    EXPECT_A("   ab", "%05s", "ab");
    EXPECT_A("ab   |", "%-5s|", "ab");
    EXPECT_A("  abc", "%5.3s", "abcdef");
    // Precision counts output bytes: a multi-byte character can be cut, as Windows does.
    EXPECT_A("\xE2", "%.1S", u"\u2606");
    EXPECT_A("\xE2\x98", "%.2S", u"\u2606");
    EXPECT_A("\xE2\x98\x86", "%.9S", u"\u2606");
    EXPECT_A("\xE2", "%.1s", "\xE2\x98\x86");
    EXPECT_A(" \xE2\x98\x86", "%4S", u"\u2606");
    // wsprintfW: %s wide, %S narrow (converted from UTF-8), %hs/%ls/%ws forced.
    EXPECT_W(u"wide", u"%s", u"wide");
    EXPECT_W(u"wide", u"%ws", u"wide");
    EXPECT_W(u"wide", u"%wS", u"wide");
    EXPECT_W(u"narrow", u"%S", "narrow");
    EXPECT_W(u"narrow", u"%hs", "narrow");
    EXPECT_W(u"(null)", u"%s", kNullW);
    EXPECT_W(u"(null)", u"%S", kNullA);
    EXPECT_W(u"(nu", u"%.3S", kNullA);
    EXPECT_W(u"\U0001F377", u"%S", "\xF0\x9F\x8D\xB7");
    EXPECT_W(u"a\uFFFDb", u"%S", "a\xFF\x62");
    EXPECT_W(u"\uFFFDA", u"%S", "\xE2\x82\x41");
    EXPECT_W(u"abc", u"%.3s", u"abcdef");
    EXPECT_W(u"h\u00E9", u"%.2S", "h\xC3\xA9llo");
    EXPECT_W(u"\xD83C", u"%.1S", "\xF0\x9F\x8D\xB7"); // counts UTF-16 units
    EXPECT_W(u"\xD83C", u"%.1s", u"\U0001F377");
    EXPECT_W(u"   h\u00E9", u"%5S", "h\xC3\xA9"); // the width counts output units too
    EXPECT_W(u"h\u00E9   |", u"%-5S|", "h\xC3\xA9");
}

TEST_F(WsprintfTest, PercentBeforeANonTypePrintsTheCharacterAndUsesNoArgument)
{
    EXPECT_A("y", "%y");
    EXPECT_A("y", "%5ly");
    EXPECT_A("ld5", "%lld%d", 5);
    EXPECT_A("q1", "%q%d", 1);
    EXPECT_A("f", "%f");
    EXPECT_A("%", "%-%");
    EXPECT_A("abc", "abc%");
    EXPECT_A("abc", "abc%-05l");
    EXPECT_W(u"ld5", u"%lld%d", 5);
    EXPECT_W(u"%", u"%-%");
}

TEST_F(WsprintfTest, OutputStopsAt1024Characters)
{
    for (size_t length : {1u, 1022u, 1023u, 1024u, 1025u, 2000u}) {
        SCOPED_TRACE(length);
        const size_t stored = std::min<size_t>(length, 1024);
        const int cStored = static_cast<int>(stored);
        std::string argA(length, 'a');
        std::u16string argW(length, u'w');
        std::vector<char> a(kBufferSize, kSentinelA);
        EXPECT_EQ(cStored, wsprintfA(a.data(), "%s", argA.c_str()));
        EXPECT_EQ(argA.substr(0, stored), std::string(a.data()));
        EXPECT_EQ(kSentinelA, a[stored + 1]);
        // The same through the literal text of the format, and across a conversion.
        EXPECT_EQ(cStored, wsprintfA(a.data(), argA.c_str()));
        EXPECT_EQ(argA.substr(0, stored), std::string(a.data()));
        EXPECT_EQ(cStored, wsprintfA(a.data(), "%S", argW.c_str()));
        EXPECT_EQ(kSentinelA, a[1025]);

        std::vector<WCHAR> w(kBufferSize, kSentinelW);
        EXPECT_EQ(cStored, wsprintfW(w.data(), u"%s", argW.c_str()));
        EXPECT_EQ(argW.substr(0, stored), std::u16string(w.data()));
        EXPECT_EQ(kSentinelW, w[stored + 1]);
        EXPECT_EQ(cStored, wsprintfW(w.data(), u"%S", argA.c_str()));
        EXPECT_EQ(kSentinelW, w[1025]);
    }
}

TEST_F(WsprintfTest, TheLimitCountsPrefixAndPaddingAndCanCutACharacter)
{
    std::string prefix(1020, 'p');
    std::vector<char> a(kBufferSize, kSentinelA);
    EXPECT_EQ(1024, wsprintfA(a.data(), "%s%08x", prefix.c_str(), 0x1234));
    EXPECT_EQ(prefix + "0000", std::string(a.data()));
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

    // 1023 bytes, then a two-byte character of which one byte fits.
    std::u16string wide = std::u16string(1023, u'a') + u"\u00E9";
    EXPECT_EQ(1024, wsprintfA(a.data(), "%S", wide.c_str()));
    EXPECT_EQ('\xC3', a[1023]);
    EXPECT_EQ('\0', a[1024]);
    // 1023 units, then a surrogate pair of which the high half fits.
    std::string narrow = std::string(1023, 'a') + "\xF0\x9F\x8D\xB7";
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
