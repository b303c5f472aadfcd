// Recognition of the provider's LUNs by vendor id: exact for IsOrvaneVendorId, a six-character
// prefix for HasOrvaneVendorPrefix, both case-sensitive and without trimming.
#include "provider/vendor.h"
#include "tests/support/paltest.h"

namespace {

using orvtest::Narrow;
using VendorTest = orvtest::PalTest;

TEST_F(VendorTest, ExactAndPrefixTestsDifferOnlyWhereTheyShould)
{
    struct Case
    {
        LPCWSTR pszVendorId;
        BOOL fExact;
        BOOL fPrefix;
    };
    const Case cases[] = {
        {W("ORVANE"), TRUE, TRUE},    {W("ORVANE  "), FALSE, TRUE}, {W("ORVANEX"), FALSE, TRUE},
        {W("ORVAN"), FALSE, FALSE},   {W("orvane"), FALSE, FALSE},  {W("Orvane"), FALSE, FALSE},
        {W(" ORVANE"), FALSE, FALSE}, {W(""), FALSE, FALSE},        {W("NETAPP  "), FALSE, FALSE},
        {nullptr, FALSE, FALSE},
    };
    for (const Case& c : cases) {
        std::string name = c.pszVendorId ? "\"" + Narrow(c.pszVendorId) + "\"" : "NULL";
        EXPECT_EQ(c.fExact, IsOrvaneVendorId(c.pszVendorId)) << name;
        EXPECT_EQ(c.fPrefix, HasOrvaneVendorPrefix(c.pszVendorId)) << name;
    }
}

TEST_F(VendorTest, PrefixTestStopsAtAShortIdsTerminator)
{
    // Only the five characters and the terminator are readable: the comparison must stop at
    // the terminator (AddressSanitizer would report a read past it).
    WCHAR* pszShort = new WCHAR[6]{u'O', u'R', u'V', u'A', u'N', 0};
    EXPECT_FALSE(HasOrvaneVendorPrefix(pszShort));
    EXPECT_FALSE(IsOrvaneVendorId(pszShort));
    delete[] pszShort;
}

} // namespace
