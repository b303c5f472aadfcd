// The C runtime's wide-string functions on UTF-16 strings: C semantics, ASCII case folding.
#include "pal/crt.h"
#include "tests/support/paltest.h"

#include <type_traits>

namespace {

using CrtStringTest = orvtest::PalTest;

int Sign(int v)
{
    return (v > 0) - (v < 0);
}

TEST_F(CrtStringTest, ComparisonsFollowTheTable)
{
    const struct
    {
        const WCHAR* a;
        const WCHAR* b;
        size_t count; // for the n variants
        int cmp;      // sign of wcscmp
        int ncmp;     // sign of wcsncmp(count)
        int icmp;     // sign of _wcsicmp
        int nicmp;    // sign of _wcsnicmp(count)
    } cases[] = {
        {u"", u"", 0, 0, 0, 0, 0},
        {u"abc", u"abc", 3, 0, 0, 0, 0},
        {u"abc", u"abd", 3, -1, -1, -1, -1},
        {u"abc", u"abd", 2, -1, 0, -1, 0},
        {u"ab", u"abc", 3, -1, -1, -1, -1},
        {u"abc", u"ab", 2, 1, 0, 1, 0},
        {u"abc", u"", 0, 1, 0, 1, 0},
        {u"ABC", u"abc", 3, -1, -1, 0, 0},
        {u"abc", u"ABD", 3, 1, 1, -1, -1},
        {u"Hello", u"hELLO world", 5, -1, -1, -1, 0},
        // Past the terminators nothing is compared, whatever the count.
        {u"ab\0x", u"ab\0y", 10, 0, 0, 0, 0},
        // ASCII folding only: U+00C9 and U+00E9 differ in every variant.
        {u"\u00C9", u"\u00E9", 1, -1, -1, -1, -1},
        // Units compare as unsigned values: U+FFFF sorts after ASCII and after a surrogate.
        {u"\uFFFF", u"a", 1, 1, 1, 1, 1},
        {u"\U0001F377", u"\uFFFF", 1, -1, -1, -1, -1},
        // Folding to lower case puts '_' (0x5F) and '[' before letters, as the C runtime does.
        {u"_", u"A", 1, 1, 1, -1, -1},
        {u"[", u"A", 1, 1, 1, -1, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(orvtest::Narrow(c.a) + " | " + orvtest::Narrow(c.b));
        EXPECT_EQ(c.cmp, Sign(wcscmp(c.a, c.b)));
        EXPECT_EQ(-c.cmp, Sign(wcscmp(c.b, c.a)));
        EXPECT_EQ(c.ncmp, Sign(wcsncmp(c.a, c.b, c.count)));
        EXPECT_EQ(c.icmp, Sign(_wcsicmp(c.a, c.b)));
        EXPECT_EQ(-c.icmp, Sign(_wcsicmp(c.b, c.a)));
        EXPECT_EQ(c.nicmp, Sign(_wcsnicmp(c.a, c.b, c.count)));
    }
}

TEST_F(CrtStringTest, LengthsCountUnitsAndComparisonsReturnTheUnitDifference)
{
    EXPECT_EQ(0u, wcslen(u""));
    EXPECT_EQ(3u, wcslen(u"abc"));
    EXPECT_EQ(2u, wcslen(u"\U0001F377"));
    EXPECT_EQ(1u, wcslen(u"a\0b"));

    EXPECT_EQ(u'c' - u'e', wcscmp(u"abc", u"abe"));
    EXPECT_EQ(0xFFFF - u'a', wcscmp(u"\uFFFF", u"a"));
    EXPECT_EQ(-u'c', wcsncmp(u"ab", u"abc", 5));
    EXPECT_EQ(u'x' - u'a', _wcsicmp(u"X", u"A"));
    EXPECT_EQ(0, wcsncmp(u"abc", u"xyz", 0));
    EXPECT_EQ(0, _wcsnicmp(u"abc", u"xyz", 0));
}

TEST_F(CrtStringTest, WcschrAndWcsrchrFindTheFirstAndLastUnit)
{
    const WCHAR* s = u"a/b/c";
    EXPECT_EQ(s + 1, wcschr(s, u'/'));
    EXPECT_EQ(s + 3, wcsrchr(s, u'/'));
    EXPECT_EQ(s, wcschr(s, u'a'));
    EXPECT_EQ(s + 4, wcsrchr(s, u'c'));
    EXPECT_EQ(s + 5, wcschr(s, u'\0')); // the terminator is found
    EXPECT_EQ(s + 5, wcsrchr(s, u'\0'));
    EXPECT_EQ(nullptr, wcschr(s, u'x'));
    EXPECT_EQ(nullptr, wcsrchr(s, u'x'));
    EXPECT_EQ(nullptr, wcsrchr(u"", u'a'));

    // On a modifiable string both return a modifiable pointer, as C++'s overloads do.
    WCHAR path[] = u"C:\\dir\\file.txt";
    static_assert(std::is_same_v<decltype(wcschr(path, u'\\')), WCHAR*>);
    static_assert(std::is_same_v<decltype(wcsrchr(path, u'\\')), WCHAR*>);
    ASSERT_EQ(path + 6, wcsrchr(path, u'\\'));
    *wcsrchr(path, u'\\') = 0;
    *wcschr(path, u'\\') = u'/';
    EXPECT_EQ(std::u16string(u"C:/dir"), std::u16string(path));
}

} // namespace
