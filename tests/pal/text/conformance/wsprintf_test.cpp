// wsprintfA/W and wvsprintfA/W: formats, arguments and expected output. The 1024-character
// limit is checked in ../wsprintf_test.cpp (Wine stores 1023 characters where Windows stores 1024).
#include "pal/winuser.h"
#include "tests/pal/text/wsprintfcheck.h"
#include "tests/support/conformance.h"

#include <climits>
#include <cstdint>
#include <string>

namespace {

using WsprintfTest = orvtest::ConformanceTest;

using namespace orvtest::wsprintfcheck;

const CHAR* const kNullA = nullptr;
const WCHAR* const kNullW = nullptr;

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
    EXPECT_W(W("100%"), W("100%%"));
    EXPECT_W(W("ffffffff"), W("%lx"), -1);
    EXPECT_W(W("FFFFFFFFFFFEDCBB"), W("%I64X"), LONGLONG{-0x12345});
    EXPECT_W(W("0000000000ABCDEF"), W("%p"), reinterpret_cast<void*>(0xABCDEF));
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
    EXPECT_A("0", "%.0d", 0);
    EXPECT_A("0xff", "%#x", 255);
    EXPECT_A("0x0", "%#x", 0);
    EXPECT_A("0x0000001f", "%#.8x", 31);
    EXPECT_W(W("0x0000001f"), W("%#.8x"), 31);
    // The trace lines of the system's log.
    EXPECT_A("[000123] [07/04 09:05:03 042] ", "[%06d] [%02d/%02d %02d:%02d:%02d %03d] ", 123, 7, 4,
             9, 5, 3, 42);
    EXPECT_A("hr = 0x80070005 (-2147024891)", "hr = 0x%08lX (%ld)", LONG(0x80070005),
             LONG(0x80070005));
    EXPECT_W(W("[000123] [12/31 23:59:59 999] "), W("[%06d] [%02d/%02d %02d:%02d:%02d %03d] "), 123,
             12, 31, 23, 59, 59, 999);
    EXPECT_W(W("CProvider::Commit() entered\n"), W("%s() entered\n"), W("CProvider::Commit"));
}

TEST_F(WsprintfTest, CharactersInTheCallersWidthOrTheOther)
{
    // wsprintfA: %c narrow, %C wide (converted to CP_ACP).
    EXPECT_A("[x]", "[%c]", 'x');
    EXPECT_A("  x|", "%3c|", 'x');
    EXPECT_A("x  |", "%-3c|", 'x');
    EXPECT_A("y", "%hc", 'y');
    // wsprintfW: %c wide, %C narrow.
    EXPECT_W(W("\u00E9"), W("%c"), W('\u00E9'));
    EXPECT_W(W("\u20AC"), W("%wc"), W('\u20AC'));
    EXPECT_W(W("x"), W("%C"), 'x');
    EXPECT_W(W("x"), W("%hc"), 'x');
    EXPECT_W(W("\u20AC"), W("%lC"), W('\u20AC'));
    EXPECT_W(W("  x|"), W("%3c|"), W('x'));
}

TEST_F(WsprintfTest, StringsInTheCallersWidthOrTheOther)
{
    // wsprintfA: %s narrow, %S wide (converted to CP_ACP), %hs/%ls/%ws forced.
    EXPECT_A("Provider::Commit() entered\n", "%s() entered\n", "Provider::Commit");
    EXPECT_A("(null)", "%s", kNullA);
    EXPECT_A("(null)", "%S", kNullW);
    EXPECT_A("(nu", "%.3s", kNullA);
    EXPECT_A("wide", "%S", W("wide"));
    EXPECT_A("wide", "%ls", W("wide"));
    EXPECT_A("wide", "%ws", W("wide"));
    EXPECT_A("narrow", "%hs", "narrow");
    EXPECT_A("abc", "%.3s", "abcdef");
    EXPECT_A("abcdef", "%.0s", "abcdef");
    EXPECT_A("\xE2", "%.1s", "\xE2\x98\x86"); // bytes, whatever the code page
    EXPECT_A("abcdef", "%3s", "abcdef");
    EXPECT_A("   ab", "%5s", "ab");
    EXPECT_A("   ab", "%05s", "ab");
    EXPECT_A("ab   |", "%-5s|", "ab");
    EXPECT_A("  abc", "%5.3s", "abcdef");
    // wsprintfW: %s wide, %S narrow (converted from CP_ACP), %hs/%ls/%ws forced.
    EXPECT_W(W("wide"), W("%s"), W("wide"));
    EXPECT_W(W("wide"), W("%ws"), W("wide"));
    EXPECT_W(W("wide"), W("%wS"), W("wide"));
    EXPECT_W(W("narrow"), W("%S"), "narrow");
    EXPECT_W(W("narrow"), W("%hs"), "narrow");
    EXPECT_W(W("(null)"), W("%s"), kNullW);
    EXPECT_W(W("(null)"), W("%S"), kNullA);
    EXPECT_W(W("(nu"), W("%.3S"), kNullA);
    EXPECT_W(W("abc"), W("%.3s"), W("abcdef"));
    EXPECT_W(W("\xD83C"), W("%.1s"), W("\U0001F377"));
}

TEST_F(WsprintfTest, PercentBeforeANonTypePrintsTheCharacterAndUsesNoArgument)
{
    EXPECT_A("y", "%y");
    EXPECT_A("ld5", "%lld%d", 5);
    EXPECT_A("q1", "%q%d", 1);
    EXPECT_A("f", "%f");
    EXPECT_A("abc", "abc%");
    EXPECT_A("abc", "abc%-05l");
    EXPECT_W(W("ld5"), W("%lld%d"), 5);
}

} // namespace
