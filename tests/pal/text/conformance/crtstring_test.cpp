// The C runtime's wide-string functions on UTF-16 strings: C semantics, ASCII case folding.
#include "pal/crt.h"
#include "tests/support/conformance.h"

#include <type_traits>

namespace {

using CrtStringTest = orvtest::ConformanceTest;

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
        {W(""), W(""), 0, 0, 0, 0, 0},
        {W("abc"), W("abc"), 3, 0, 0, 0, 0},
        {W("abc"), W("abd"), 3, -1, -1, -1, -1},
        {W("abc"), W("abd"), 2, -1, 0, -1, 0},
        {W("ab"), W("abc"), 3, -1, -1, -1, -1},
        {W("abc"), W("ab"), 2, 1, 0, 1, 0},
        {W("abc"), W(""), 0, 1, 0, 1, 0},
        {W("ABC"), W("abc"), 3, -1, -1, 0, 0},
        {W("abc"), W("ABD"), 3, 1, 1, -1, -1},
        {W("Hello"), W("hELLO world"), 5, -1, -1, -1, 0},
        // Past the terminators nothing is compared, whatever the count.
        {W("ab\0x"), W("ab\0y"), 10, 0, 0, 0, 0},
        // ASCII folding only: U+00C9 and U+00E9 differ in every variant.
        {W("\u00C9"), W("\u00E9"), 1, -1, -1, -1, -1},
        // Units compare as unsigned values: U+FFFF sorts after ASCII and after a surrogate.
        {W("\uFFFF"), W("a"), 1, 1, 1, 1, 1},
        {W("\U0001F377"), W("\uFFFF"), 1, -1, -1, -1, -1},
        // Folding to lower case puts '_' (0x5F) and '[' before letters, as the C runtime does.
        {W("_"), W("A"), 1, 1, 1, -1, -1},
        {W("["), W("A"), 1, 1, 1, -1, -1},
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

TEST_F(CrtStringTest, LengthsCountUnitsAndACountOfZeroComparesNothing)
{
    EXPECT_EQ(0u, wcslen(W("")));
    EXPECT_EQ(3u, wcslen(W("abc")));
    EXPECT_EQ(2u, wcslen(W("\U0001F377")));
    EXPECT_EQ(1u, wcslen(W("a\0b")));

    EXPECT_EQ(0, wcsncmp(W("abc"), W("xyz"), 0));
    EXPECT_EQ(0, _wcsnicmp(W("abc"), W("xyz"), 0));
}

TEST_F(CrtStringTest, WcschrAndWcsrchrFindTheFirstAndLastUnit)
{
    const WCHAR* s = W("a/b/c");
    EXPECT_EQ(s + 1, wcschr(s, W('/')));
    EXPECT_EQ(s + 3, wcsrchr(s, W('/')));
    EXPECT_EQ(s, wcschr(s, W('a')));
    EXPECT_EQ(s + 4, wcsrchr(s, W('c')));
    EXPECT_EQ(s + 5, wcschr(s, W('\0'))); // the terminator is found
    EXPECT_EQ(s + 5, wcsrchr(s, W('\0')));
    EXPECT_EQ(nullptr, wcschr(s, W('x')));
    EXPECT_EQ(nullptr, wcsrchr(s, W('x')));
    EXPECT_EQ(nullptr, wcsrchr(W(""), W('a')));

    // On a modifiable string both return a modifiable pointer, as C++'s overloads do.
    WCHAR path[] = W("C:\\dir\\file.txt");
    static_assert(std::is_same_v<decltype(wcschr(path, W('\\'))), WCHAR*>);
    static_assert(std::is_same_v<decltype(wcsrchr(path, W('\\'))), WCHAR*>);
    ASSERT_EQ(path + 6, wcsrchr(path, W('\\')));
    *wcsrchr(path, W('\\')) = 0;
    *wcschr(path, W('\\')) = W('/');
    EXPECT_EQ(orvtest::WString(W("C:/dir")), orvtest::WString(path));
}

} // namespace
