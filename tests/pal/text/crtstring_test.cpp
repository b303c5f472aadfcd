// The C runtime's comparisons return the difference of the first differing units here; Windows
// documents only the sign (its runtime returns -1 and 1). The shared cases are in
// conformance/crtstring_test.cpp.
#include "pal/crt.h"
#include "tests/support/paltest.h"

namespace {

using CrtStringPalTest = orvtest::PalTest;

TEST_F(CrtStringPalTest, ComparisonsReturnTheUnitDifference)
{
    EXPECT_EQ(W('c') - W('e'), wcscmp(W("abc"), W("abe")));
    EXPECT_EQ(0xFFFF - W('a'), wcscmp(W("\uFFFF"), W("a")));
    EXPECT_EQ(-W('c'), wcsncmp(W("ab"), W("abc"), 5));
    EXPECT_EQ(W('x') - W('a'), _wcsicmp(W("X"), W("A")));
}

} // namespace
