// lstr* beyond ASCII, where the platform's order is its own: it approximates the Windows sort
// without its full tables, so other characters sort after the letters by code point (Windows
// sorts "é" beside "e" and ignores some characters, e.g. U+FFFD), and the A variants read UTF-8
// (CP_ACP here; 1252 and others on Windows). The shared cases are in conformance/lstr_test.cpp.
#include "pal/winbase.h"
#include "tests/support/paltest.h"

#include <string>

namespace {

using LstrOrderTest = orvtest::PalTest;

TEST_F(LstrOrderTest, OtherCharactersSortAfterTheLettersByCodePoint)
{
    const WCHAR* const sorted[] = {
        W("~"),      W("\u20AC"), // symbols beyond ASCII after the ASCII ones
        W("0"),      W("z"),      W("Z"),      W("\u00E9"),     W("\u00C9"),
        W("\u03C9"), W("\u03A9"), W("\u4E2D"), W("\U0001F600"), W("\uFFFD"),
    };
    for (size_t i = 0; i < std::size(sorted); ++i) {
        for (size_t j = 0; j < std::size(sorted); ++j) {
            SCOPED_TRACE(orvtest::Narrow(sorted[i]) + " vs " + orvtest::Narrow(sorted[j]));
            int expected = i < j ? -1 : (i > j ? 1 : 0);
            EXPECT_EQ(expected, lstrcmpW(sorted[i], sorted[j]));
            std::string a = orvtest::Narrow(sorted[i]), b = orvtest::Narrow(sorted[j]);
            EXPECT_EQ(expected, lstrcmpA(a.c_str(), b.c_str()));
        }
    }
}

TEST_F(LstrOrderTest, AnsiVariantsReadUtf8)
{
    EXPECT_EQ(0, lstrcmpiA("\xC3\xA9t\xC3\xA9", "\xC3\x89T\xC3\x89"));
    EXPECT_EQ(0, lstrcmpiA("\xD0\xB6", "\xD0\x96"));
    EXPECT_EQ(-1, lstrcmpiA("Z", "\xC3\xA9"));
    // Invalid UTF-8 compares as the replacement character.
    EXPECT_EQ(0, lstrcmpA("a\xFF", "a\xFF"));
    EXPECT_EQ(1, lstrcmpA("a\xFF", "az"));
}

} // namespace
