// wsprintf formats where this platform and Wine part ways; the shared cases are in
// conformance/wsprintf_test.cpp.
#include "pal/winuser.h"
#include "tests/pal/text/wsprintfcheck.h"
#include "tests/support/paltest.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace orvtest::wsprintfcheck;

using WsprintfPalTest = orvtest::PalTest;

// Wine's wsprintf departs from the documented formats here: it reads 'h' integers as int (not
// short), counts the sign in the precision (a minimum of digits), leaves the 0x prefix out of
// the width (a minimum of characters), stores a zero character (ignored) and prints nothing for a
// character after flags that is no type (printed unformatted).
TEST_F(WsprintfPalTest, DocumentedFormatsThatWineDiffersOn)
{
    EXPECT_A("-1", "%hd", 0xFFFF);
    EXPECT_A("65535", "%hu", -1);
    EXPECT_A("ffff", "%hx", -1);
    EXPECT_A("-005", "%.3d", -5);
    EXPECT_A("  -005", "%6.3d", -5);
    EXPECT_A("0x001f", "%#06x", 31);
    EXPECT_A("    0x1f", "%#8x", 31);
    EXPECT_A("0x1f    |", "%-#8x|", 31);
    EXPECT_A("ab", "a%cb", 0);
    EXPECT_A("ab", "a%Cb", 0);
    EXPECT_W(W("ab"), W("a%cb"), 0);
    EXPECT_A("y", "%5ly");
    EXPECT_A("%", "%-%");
    EXPECT_W(W("%"), W("%-%"));
}

// Narrow text is in CP_ACP, which is UTF-8 here (a code page of the language elsewhere).
TEST_F(WsprintfPalTest, ConversionsReadAndWriteUtf8)
{
    EXPECT_A("\xC3\xA9", "%C", W('\u00E9'));
    EXPECT_A("\xE2\x82\xAC", "%lc", W('\u20AC'));
    EXPECT_A("\xE2\x82\xAC", "%wc", W('\u20AC'));
    EXPECT_A("\xEF\xBF\xBD", "%C", W('\xD800'));
    EXPECT_W(W("\uFFFD"), W("%C"), '\xE9'); // a lone byte above 0x7F is no UTF-8 character
    EXPECT_A("h\xC3\xA9", "%S", W("h\u00E9"));
    EXPECT_A("\xF0\x9F\x8D\xB7", "%S", W("\U0001F377"));
    EXPECT_A("a\xEF\xBF\xBD\x62", "%S", W("a\xD800\x62"));
    // Precision counts output bytes: a multi-byte character can be cut, as Windows does.
    EXPECT_A("\xE2", "%.1S", W("\u2606"));
    EXPECT_A("\xE2\x98", "%.2S", W("\u2606"));
    EXPECT_A("\xE2\x98\x86", "%.9S", W("\u2606"));
    EXPECT_A(" \xE2\x98\x86", "%4S", W("\u2606"));
    EXPECT_W(W("\U0001F377"), W("%S"), "\xF0\x9F\x8D\xB7");
    EXPECT_W(W("a\uFFFDb"), W("%S"), "a\xFF\x62");
    EXPECT_W(W("\uFFFDA"), W("%S"), "\xE2\x82\x41");
    EXPECT_W(W("h\u00E9"), W("%.2S"), "h\xC3\xA9llo");
    EXPECT_W(W("\xD83C"), W("%.1S"), "\xF0\x9F\x8D\xB7"); // counts UTF-16 units
    EXPECT_W(W("   h\u00E9"), W("%5S"), "h\xC3\xA9");     // the width counts output units too
    EXPECT_W(W("h\u00E9   |"), W("%-5S|"), "h\xC3\xA9");
}

// Windows stores up to 1024 characters and a terminator and returns 1024 (reports of tests on
// Windows in the SDK documentation's history); Wine stores 1023.
TEST_F(WsprintfPalTest, OutputStopsAt1024Characters)
{
    for (size_t length : {1u, 1022u, 1023u, 1024u, 1025u, 2000u}) {
        SCOPED_TRACE(length);
        const size_t stored = std::min<size_t>(length, 1024);
        const int cStored = static_cast<int>(stored);
        std::string argA(length, 'a');
        orvtest::WString argW(length, W('w'));
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
        EXPECT_EQ(cStored, wsprintfW(w.data(), W("%s"), argW.c_str()));
        EXPECT_EQ(argW.substr(0, stored), orvtest::WString(w.data()));
        EXPECT_EQ(kSentinelW, w[stored + 1]);
        EXPECT_EQ(cStored, wsprintfW(w.data(), W("%S"), argA.c_str()));
        EXPECT_EQ(kSentinelW, w[1025]);
    }
}

TEST_F(WsprintfPalTest, TheLimitCountsPrefixAndPaddingAndCanCutACharacter)
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
    EXPECT_EQ(1024, wsprintfW(w.data(), W("%99999999999999999999d"), 1));
    EXPECT_EQ(kSentinelW, w[1025]);

    // 1023 bytes, then a two-byte character of which one byte fits.
    orvtest::WString wide = orvtest::WString(1023, W('a')) + W("\u00E9");
    EXPECT_EQ(1024, wsprintfA(a.data(), "%S", wide.c_str()));
    EXPECT_EQ('\xC3', a[1023]);
    EXPECT_EQ('\0', a[1024]);
    // 1023 units, then a surrogate pair of which the high half fits.
    std::string narrow = std::string(1023, 'a') + "\xF0\x9F\x8D\xB7";
    EXPECT_EQ(1024, wsprintfW(w.data(), W("%S"), narrow.c_str()));
    EXPECT_EQ(0xD83C, w[1023]);
    EXPECT_EQ(0, w[1024]);
}

// Windows faults on these.
TEST_F(WsprintfPalTest, NullBuffersAreHandled)
{
    EXPECT_EQ(0, wsprintfA(nullptr, "%d", 1));
    EXPECT_EQ(0, wsprintfW(nullptr, W("%d"), 1));
    char a[4] = "xyz";
    EXPECT_EQ(0, wsprintfA(a, nullptr));
    EXPECT_EQ('\0', a[0]);
    WCHAR w[4] = W("xyz");
    EXPECT_EQ(0, wsprintfW(w, nullptr));
    EXPECT_EQ(0, w[0]);
}

} // namespace
