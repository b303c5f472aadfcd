// kernel32's lstr* helpers: lengths, the word-sort comparisons and lstrcpynW.
#include "pal/errhandlingapi.h"
#include "pal/winbase.h"
#include "tests/support/conformance.h"

#include <algorithm>
#include <string>
#include <utility>

namespace {

using LstrTest = orvtest::ConformanceTest;

constexpr WCHAR kSentinel = 0xCCCC;

std::string Describe(const WCHAR* s)
{
    return s ? "\"" + orvtest::Narrow(s) + "\"" : "NULL";
}

TEST_F(LstrTest, LstrcmpWAndAOrderTheTable)
{
    // In lstrcmpW order; every string differs from the others. The other characters' order is
    // the platform's own (tests/pal/text/lstr_test.cpp).
    const WCHAR* const sorted[] = {
        W(""),
        W("\x01"), // ignored characters: only the word-sort level sees them
        W("\x7F"),    W("'"),         W("-"),
        W(" "), // white space, punctuation and symbols, in the order of the Windows table
        W("\t"),      W("\r"),        W("!"),       W("#"),       W("_"),
        W("~"),       W("+"),         W("<"),       W("="),       W(">"),
        W("0"), // digits, one character at a time, so version strings do not sort as numbers
        W("1"),       W("10.0.0.0"),  W("3.1.9.9"), W("3.2.0.0"), W("3.3"),
        W("4.0.0.1"), W("9"),
        W("a"), // letters, the lowercase one first
        W("a-"),      W("A"),         W("ab"),      W("aB"),      W("Ab"),
        W("AB"),      W("b"),         W("B"),
        W("coop"), // word sort: the ignored characters count last, a later one sorting first
        W("coop-"),   W("co'op"),     W("co-op"),   W("co-op-"),  W("-coop"),
        W("Co-op"),   W("cooperate"), W("z"),       W("Z"),
    };
    // lstrcmpA converts from the ANSI code page and orders ASCII text the same.
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
        {W("abc"), W("ABC"), 0},
        {W("ABC"), W("abc"), 0},
        {W("Co-Op"), W("cO-oP"), 0},
        {W("a"), W("B"), -1},
        {W("B"), W("a"), 1},
        {W("coop"), W("CO-OP"), -1},
        {W("co-op"), W("COOP"), 1},
        {W("A"), W("-a"), -1},
        {W("_"), W("a"), -1}, // not by code unit
        {W("10.0.0.0"), W("3.1.9.9"), -1},
        {W("3.3"), W("3.2.0.0"), 1},
        {W(""), W(""), 0},
        {W(""), W("-"), -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Describe(c.a) + " vs " + Describe(c.b));
        EXPECT_EQ(c.expected, lstrcmpiW(c.a, c.b));
        EXPECT_EQ(-c.expected, lstrcmpiW(c.b, c.a));
        std::string a = orvtest::Narrow(c.a), b = orvtest::Narrow(c.b);
        EXPECT_EQ(c.expected, lstrcmpiA(a.c_str(), b.c_str()));
        EXPECT_EQ(-c.expected, lstrcmpiA(b.c_str(), a.c_str()));
    }
    // Beyond ASCII too, the case is ignored, and otherwise the lowercase letter sorts first.
    for (auto [lower, upper] :
         {std::pair{W("\u00E9t\u00E9"), W("\u00C9T\u00C9")}, std::pair{W("\u0436"), W("\u0416")}}) {
        SCOPED_TRACE(Describe(lower));
        EXPECT_EQ(0, lstrcmpiW(lower, upper));
        EXPECT_EQ(-1, lstrcmpW(lower, upper));
    }
}

TEST_F(LstrTest, NullIsEmptyForLengthsAndSortsFirst)
{
    EXPECT_EQ(0, lstrlenW(nullptr));
    EXPECT_EQ(0, lstrlenW(W("")));
    EXPECT_EQ(2, lstrlenW(W("\U0001F377"))); // units
    EXPECT_EQ(0, lstrlenA(nullptr));
    EXPECT_EQ(3, lstrlenA("abc"));
    EXPECT_EQ(2, lstrlenA("\xC3\xA9")); // bytes

    EXPECT_EQ(0, lstrcmpW(nullptr, nullptr));
    EXPECT_EQ(-1, lstrcmpW(nullptr, W("")));
    EXPECT_EQ(1, lstrcmpW(W(""), nullptr));
    EXPECT_EQ(0, lstrcmpiW(nullptr, nullptr));
    EXPECT_EQ(-1, lstrcmpiW(nullptr, W("a")));
    EXPECT_EQ(1, lstrcmpiW(W("a"), nullptr));
    EXPECT_EQ(0, lstrcmpA(nullptr, nullptr));
    EXPECT_EQ(-1, lstrcmpA(nullptr, ""));
    EXPECT_EQ(1, lstrcmpA("a", nullptr));
    EXPECT_EQ(0, lstrcmpiA(nullptr, nullptr));
    EXPECT_EQ(-1, lstrcmpiA(nullptr, "A"));
    EXPECT_EQ(1, lstrcmpiA("", nullptr));
}

TEST_F(LstrTest, LstrcpynCopiesAtMostOneLessThanTheSizeAndTerminates)
{
    const struct
    {
        const WCHAR* source;
        int iMaxLength;
        orvtest::WString expected;
    } cases[] = {
        {W("abcdef"), 4, W("abc")},
        {W("abcdef"), 7, W("abcdef")},
        {W("abcdef"), 100, W("abcdef")},
        {W("abcdef"), 1, W("")},
        {W(""), 5, W("")},
        {W("\U0001F377x"), 2, W("\xD83C")}, // cuts a surrogate pair as Windows does
    };
    WCHAR buffer[16];
    for (const auto& c : cases) {
        SCOPED_TRACE(Describe(c.source) + " " + std::to_string(c.iMaxLength));
        std::fill(std::begin(buffer), std::end(buffer), kSentinel);
        EXPECT_EQ(buffer, lstrcpynW(buffer, c.source, c.iMaxLength));
        EXPECT_EQ(c.expected, orvtest::WString(buffer));
        EXPECT_EQ(kSentinel, buffer[c.expected.size() + 1]) << "wrote past the terminator";
    }
    // A size of zero writes nothing; null pointers fail.
    std::fill(std::begin(buffer), std::end(buffer), kSentinel);
    EXPECT_EQ(buffer, lstrcpynW(buffer, W("abc"), 0));
    EXPECT_EQ(kSentinel, buffer[0]);
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER, lstrcpynW(buffer, nullptr, 4));
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER, lstrcpynW(nullptr, W("abc"), 4));
}

} // namespace
