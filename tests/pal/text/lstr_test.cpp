// kernel32's lstr* helpers: lengths, the word-sort comparisons and lstrcpynW.
#include "pal/errhandlingapi.h"
#include "pal/winbase.h"
#include "tests/support/paltest.h"

#include <algorithm>
#include <string>

namespace {

using LstrTest = orvtest::PalTest;

constexpr WCHAR kSentinel = 0xCCCC;

std::string Describe(const WCHAR* s)
{
    return s ? "\"" + orvtest::Narrow(s) + "\"" : "NULL";
}

TEST_F(LstrTest, LstrcmpWAndAOrderTheTable)
{
    // In lstrcmpW order; every string differs from the others.
    const WCHAR* const sorted[] = {
        u"",
        u"'", // ignored characters: only the last levels see them
        u"-",
        u"\t", // symbols and punctuation, by code point
        u" ",      u"!",        u"#",       u"_",       u"~",          u"\u20AC",
        u"0", // digits, one character at a time, so version strings do not sort as numbers
        u"1",      u"10.0.0.0", u"3.1.9.9", u"3.2.0.0", u"3.3",        u"4.0.0.1",   u"9",
        u"a", // letters, the lowercase one first
        u"a-",     u"A",        u"ab",      u"aB",      u"Ab",         u"AB",        u"b", u"B",
        u"coop", // word sort: hyphens and apostrophes count last
        u"-coop",  u"co'op",    u"co-op",   u"co-op-",  u"Co-op",      u"cooperate", u"z", u"Z",
        u"\u00E9", // other characters after the letters, by code point
        u"\u00C9", u"\u03C9",   u"\u03A9",  u"\u4E2D",  u"\U0001F600", u"\uFFFD",
    };
    // lstrcmpA converts from the ANSI code page (UTF-8) and orders the same.
    for (size_t i = 0; i < std::size(sorted); ++i) {
        for (size_t j = 0; j < std::size(sorted); ++j) {
            SCOPED_TRACE(Describe(sorted[i]) + " vs " + Describe(sorted[j]));
            int expected = i < j ? -1 : (i > j ? 1 : 0);
            EXPECT_EQ(expected, lstrcmpW(sorted[i], sorted[j]));
            std::string a = orvtest::Narrow(sorted[i]), b = orvtest::Narrow(sorted[j]);
            EXPECT_EQ(expected, lstrcmpA(a.c_str(), b.c_str()));
        }
    }
}

TEST_F(LstrTest, LstrcmpiIgnoresCaseOnly)
{
    const struct
    {
        const WCHAR* a;
        const WCHAR* b;
        int expected;
    } cases[] = {
        {u"abc", u"ABC", 0},       {u"ABC", u"abc", 0},
        {u"Co-Op", u"cO-oP", 0},   {u"\u00E9t\u00E9", u"\u00C9T\u00C9", 0},
        {u"\u0416", u"\u0436", 0}, {u"a", u"B", -1},
        {u"B", u"a", 1},           {u"coop", u"CO-OP", -1},
        {u"co-op", u"COOP", 1},    {u"_", u"a", -1}, // symbols before letters, not by code unit
        {u"Z", u"\u00E9", -1},     {u"10.0.0.0", u"3.1.9.9", -1},
        {u"3.3", u"3.2.0.0", 1},   {u"", u"", 0},
        {u"", u"-", -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Describe(c.a) + " vs " + Describe(c.b));
        EXPECT_EQ(c.expected, lstrcmpiW(c.a, c.b));
        EXPECT_EQ(-c.expected, lstrcmpiW(c.b, c.a));
        std::string a = orvtest::Narrow(c.a), b = orvtest::Narrow(c.b);
        EXPECT_EQ(c.expected, lstrcmpiA(a.c_str(), b.c_str()));
        EXPECT_EQ(-c.expected, lstrcmpiA(b.c_str(), a.c_str()));
    }
}

TEST_F(LstrTest, NullIsEmptyForLengthsAndSortsFirst)
{
    EXPECT_EQ(0, lstrlenW(nullptr));
    EXPECT_EQ(0, lstrlenW(u""));
    EXPECT_EQ(2, lstrlenW(u"\U0001F377")); // units
    EXPECT_EQ(0, lstrlenA(nullptr));
    EXPECT_EQ(3, lstrlenA("abc"));
    EXPECT_EQ(2, lstrlenA("\xC3\xA9")); // bytes

    EXPECT_EQ(0, lstrcmpW(nullptr, nullptr));
    EXPECT_EQ(-1, lstrcmpW(nullptr, u""));
    EXPECT_EQ(1, lstrcmpW(u"", nullptr));
    EXPECT_EQ(0, lstrcmpiW(nullptr, nullptr));
    EXPECT_EQ(-1, lstrcmpiW(nullptr, u"a"));
    EXPECT_EQ(1, lstrcmpiW(u"a", nullptr));
    EXPECT_EQ(0, lstrcmpA(nullptr, nullptr));
    EXPECT_EQ(-1, lstrcmpA(nullptr, ""));
    EXPECT_EQ(1, lstrcmpA("a", nullptr));
    EXPECT_EQ(0, lstrcmpiA(nullptr, nullptr));
    EXPECT_EQ(-1, lstrcmpiA(nullptr, "A"));
    EXPECT_EQ(1, lstrcmpiA("", nullptr));

    // Invalid UTF-8 compares as the replacement character.
    EXPECT_EQ(0, lstrcmpA("a\xFF", "a\xFF"));
    EXPECT_EQ(1, lstrcmpA("a\xFF", "az"));
}

TEST_F(LstrTest, LstrcpynCopiesAtMostOneLessThanTheSizeAndTerminates)
{
    const struct
    {
        const WCHAR* source;
        int iMaxLength;
        std::u16string expected;
    } cases[] = {
        {u"abcdef", 4, u"abc"},
        {u"abcdef", 7, u"abcdef"},
        {u"abcdef", 100, u"abcdef"},
        {u"abcdef", 1, u""},
        {u"", 5, u""},
        {u"\U0001F377x", 2, u"\xD83C"}, // cuts a surrogate pair as Windows does
    };
    WCHAR buffer[16];
    for (const auto& c : cases) {
        SCOPED_TRACE(Describe(c.source) + " " + std::to_string(c.iMaxLength));
        std::fill(std::begin(buffer), std::end(buffer), kSentinel);
        EXPECT_EQ(buffer, lstrcpynW(buffer, c.source, c.iMaxLength));
        EXPECT_EQ(c.expected, std::u16string(buffer));
        EXPECT_EQ(kSentinel, buffer[c.expected.size() + 1]) << "wrote past the terminator";
    }
    // A size of zero writes nothing; null pointers fail.
    std::fill(std::begin(buffer), std::end(buffer), kSentinel);
    EXPECT_EQ(buffer, lstrcpynW(buffer, u"abc", 0));
    EXPECT_EQ(kSentinel, buffer[0]);
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER, lstrcpynW(buffer, nullptr, 4));
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER, lstrcpynW(nullptr, u"abc", 4));
}

} // namespace
