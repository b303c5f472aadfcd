// The lookups of the core: exact, prefix and 12-code-unit serial number rules, first match
// wins, and the cursor left on the match.
#include "core/lookups.h"
#include "tests/core/support/recordtext.h"
#include "tests/support/paltest.h"

#include <string>

namespace {

using orvtest::FieldText;
using orvtest::TaskString;
using LookupsTest = orvtest::PalTest;

// An entry for a source LUN of vendor "ORVANE", product "LUN" and revision "0.2".
CSnapshotEntry* NewEntry(LPCWSTR pszSerial, LPCWSTR pszPath, LONG eSnapshotAttr)
{
    CSnapshotEntry* pEntry = new CSnapshotEntry;
    pEntry->SetSourceLunInfo(W("ORVANE"), W("LUN"), W("0.2"), pszSerial, pszPath, W("E:\\"));
    pEntry->SetSnapshotAttr(eSnapshotAttr);
    return pEntry;
}

// A target record of an ORVANE LUN, product "LUN" and revision "0.2" unless given.
CTargetLunInfo* NewTarget(const char* pszSerial, const char* pszProduct = "LUN",
                          const char* pszRevision = "0.2")
{
    CTargetLunInfo* pTarget = new CTargetLunInfo;
    pTarget->SetVendorId(TaskString("ORVANE"));
    pTarget->SetProductId(TaskString(pszProduct));
    pTarget->SetProductRevision(TaskString(pszRevision));
    if (pszSerial)
        pTarget->SetSerialNo(TaskString(pszSerial));
    return pTarget;
}

CLCPair* NewPair(LPCWSTR pszLunPath)
{
    CLCPair* pPair = new CLCPair;
    pPair->Set(W("f1"), pszLunPath, nullptr, W("dev"), 0);
    return pPair;
}

TEST_F(LookupsTest, ComparisonRules)
{
    const struct Case
    {
        LPCWSTR pszGiven;
        LPCWSTR pszStored;
        BOOL fExact;
        BOOL fPrefix;
    } cases[] = {
        {W("ABC"), W("ABCD1234"), FALSE, TRUE},  {W("ABCD1234"), W("ABCD1234"), TRUE, TRUE},
        {W("ABCD1234"), W("ABC"), FALSE, FALSE}, {W("abc"), W("ABCD1234"), FALSE, FALSE},
        {W(""), W("ABCD1234"), FALSE, TRUE},     {W(""), nullptr, FALSE, TRUE},
        {W("A"), nullptr, FALSE, FALSE},         {W(""), W(""), TRUE, TRUE},
        {W("co-op"), W("coop"), FALSE, FALSE},
    };
    for (const Case& c : cases) {
        std::string name = FieldText(c.pszGiven) + " / " + FieldText(c.pszStored);
        EXPECT_EQ(c.fExact, IsExactMatch(c.pszGiven, c.pszStored)) << name;
        EXPECT_EQ(c.fPrefix, IsPrefixMatch(c.pszGiven, c.pszStored)) << name;
    }
}

TEST_F(LookupsTest, SerialNumberIdentityComparesTwelveCodeUnitsNeverPastTheTerminator)
{
    const struct Case
    {
        LPCWSTR pszGiven;
        LPCWSTR pszStored;
        BOOL fSame;
    } cases[] = {
        {W("C4nB1JQzK9aX"), W("C4nB1JQzK9aX"), TRUE},
        {W("C4nB1JQzK9aXyy"), W("C4nB1JQzK9aXzz"), TRUE},
        {W("C4nB1JQzK9aX"), W("C4nB1JQzK9aY"), FALSE},
        {W("c4nB1JQzK9aX"), W("C4nB1JQzK9aX"), FALSE},
        {W("C4nB1JQzK9a"), W("C4nB1JQzK9aX"), FALSE},
        {W("C4nB1JQzK9aX"), W("C4nB1JQzK9a"), FALSE},
        {W("ABC"), W("ABC"), TRUE},
        {W("ABC"), W("ABCD1234"), FALSE},
        {W(""), W(""), TRUE},
        {W("ABC"), nullptr, FALSE},
        {nullptr, W("ABC"), FALSE},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.fSame, IsSameSerialNoIdentity(c.pszGiven, c.pszStored))
            << FieldText(c.pszGiven) << " / " << FieldText(c.pszStored);

    // Short ones in exactly sized heap blocks: AddressSanitizer reports any read beyond them.
    WCHAR* pszGiven = new WCHAR[4]{u'A', u'B', u'C', 0};
    WCHAR* pszStored = new WCHAR[4]{u'A', u'B', u'C', 0};
    WCHAR* pszOther = new WCHAR[2]{u'A', 0};
    EXPECT_TRUE(IsSameSerialNoIdentity(pszGiven, pszStored));
    EXPECT_FALSE(IsSameSerialNoIdentity(pszGiven, pszOther));
    EXPECT_FALSE(IsSameSerialNoIdentity(pszOther, pszGiven));
    delete[] pszGiven;
    delete[] pszStored;
    delete[] pszOther;
}

TEST_F(LookupsTest, SnapshotBySourceLunNeedsAllFourExactlyAndTakesTheFirst)
{
    CLinkedList<CSnapshotEntry> lst;
    lst.AddTail(NewEntry(W("S1"), W("/v/a"), 0));
    lst.AddTail(NewEntry(W("S2"), W("/v/b"), 0));
    lst.AddTail(NewEntry(W("S2"), W("/v/c"), 0));
    CSnapshotEntry* pFound =
        FindSnapshotEntryBySourceLun(lst, W("ORVANE"), W("LUN"), W("0.2"), W("S2"));
    ASSERT_NE(nullptr, pFound);
    EXPECT_EQ("/v/b", FieldText(pFound->SourcePath()));
    EXPECT_EQ(pFound, lst.Current()) << "the cursor is left on the match";

    const LPCWSTR misses[][4] = {
        {W("ORVANE  "), W("LUN"), W("0.2"), W("S2")}, {W("ORVANE"), W("lun"), W("0.2"), W("S2")},
        {W("ORVANE"), W("LUN"), W("0.3"), W("S2")},   {W("ORVANE"), W("LUN"), W("0.2"), W("S")},
        {W("ORVANE"), W("LUN"), W("0.2"), W("S22")},
    };
    for (const auto& m : misses) {
        EXPECT_EQ(nullptr, FindSnapshotEntryBySourceLun(lst, m[0], m[1], m[2], m[3]))
            << FieldText(m[0]) << "," << FieldText(m[1]) << "," << FieldText(m[2]) << ","
            << FieldText(m[3]);
        EXPECT_FALSE(lst.HasCurrent()) << "a miss leaves the cursor on the head";
    }
}

TEST_F(LookupsTest, BackupSourceEntryPassesOverEntriesWithoutRecovery)
{
    CLinkedList<CSnapshotEntry> lst;
    lst.AddTail(NewEntry(W("S1"), W("/v/a"), 0));
    lst.AddTail(NewEntry(W("S2"), W("/v/a"), -1));
    lst.AddTail(NewEntry(W("S3"), W("/v/a"), 2));
    lst.AddTail(NewEntry(W("S4"), W("/v/a"), 1));
    CSnapshotEntry* pFound = FindBackupSourceEntry(lst, W("ORVANE"), W("LUN"), W("0.2"), W("/v/a"));
    ASSERT_NE(nullptr, pFound);
    EXPECT_EQ("S3", FieldText(pFound->SourceSerialNo())) << "serial number is not compared";
    EXPECT_EQ(nullptr, FindBackupSourceEntry(lst, W("ORVANE"), W("LUN"), W("0.2"), W("/v/a2")));
    EXPECT_EQ(nullptr, FindBackupSourceEntry(lst, W("ORVANE"), W("LUN"), W("0.2"), W("/v/")));
    EXPECT_EQ(nullptr, FindBackupSourceEntry(lst, W("ORVANEX"), W("LUN"), W("0.2"), W("/v/a")));
}

TEST_F(LookupsTest, PairByLunPathIsExact)
{
    CLinkedList<CLCPair> lst;
    lst.AddTail(NewPair(W("/vol/vol1/lun10")));
    lst.AddTail(NewPair(W("/vol/vol1/lun1")));
    CLCPair* pFound = FindLCPairByLunPath(lst, W("/vol/vol1/lun1"));
    ASSERT_NE(nullptr, pFound);
    EXPECT_EQ("/vol/vol1/lun1", FieldText(pFound->LunPath()));
    EXPECT_EQ(nullptr, FindLCPairByLunPath(lst, W("/vol/vol1/lun")));
    EXPECT_EQ(nullptr, FindLCPairByLunPath(lst, W("/VOL/vol1/lun1")));
}

TEST_F(LookupsTest, TargetBySerialNoIsAPrefixLookupAndFeedsRemoveCurrent)
{
    CLinkedList<CTargetLunInfo> lst;
    for (const char* pszSerial : {(const char*)nullptr, "XYZ00001", "ABCD1234", "ABCE0000"})
        lst.AddTail(NewTarget(pszSerial));
    CTargetLunInfo* pFound = FindTargetLunBySerialNo(lst, W("ABC"));
    ASSERT_NE(nullptr, pFound);
    EXPECT_EQ("ABCD1234", FieldText(pFound->SerialNo()));
    EXPECT_EQ(nullptr, FindTargetLunBySerialNo(lst, W("abc")));
    EXPECT_EQ(nullptr, FindTargetLunBySerialNo(lst, W("ABCD12345")));

    // As DeleteTargetLun does: find, then unlink and destroy the match.
    ASSERT_NE(nullptr, FindTargetLunBySerialNo(lst, W("ABCD")));
    delete lst.RemoveCurrent();
    EXPECT_EQ(3u, lst.GetCount());
    pFound = FindTargetLunBySerialNo(lst, W("ABC"));
    ASSERT_NE(nullptr, pFound);
    EXPECT_EQ("ABCE0000", FieldText(pFound->SerialNo()));

    // An empty serial number matches the first record, even one without a serial number.
    EXPECT_EQ(lst.Current(), pFound);
    pFound = FindTargetLunBySerialNo(lst, W(""));
    ASSERT_NE(nullptr, pFound);
    EXPECT_EQ(nullptr, pFound->SerialNo());
}

TEST_F(LookupsTest, TargetByIdentityUsesPrefixesAndTwelveSerialUnits)
{
    CLinkedList<CTargetLunInfo> lst;
    lst.AddTail(NewTarget("C4nB1JQzK9aX-extra", "LUN C-Mode", "0.2a"));
    struct Case
    {
        LPCWSTR pszProduct;
        LPCWSTR pszRevision;
        LPCWSTR pszSerial;
        bool fFound;
    };
    const Case cases[] = {
        {W("LUN"), W("0.2"), W("C4nB1JQzK9aX"), true},
        {W("LUN C-Mode"), W("0.2a"), W("C4nB1JQzK9aX-other"), true},
        {W(""), W(""), W("C4nB1JQzK9aX"), true},
        {W("LUN C-Mode!"), W("0.2"), W("C4nB1JQzK9aX"), false},
        {W("LUN"), W("0.3"), W("C4nB1JQzK9aX"), false},
        {W("LUN"), W("0.2"), W("C4nB1JQzK9aY"), false},
        {W("LUN"), W("0.2"), W("C4nB1JQzK9a"), false},
        {W("lun"), W("0.2"), W("C4nB1JQzK9aX"), false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.fFound,
                  FindTargetLunByIdentity(lst, c.pszProduct, c.pszRevision, c.pszSerial) != nullptr)
            << FieldText(c.pszProduct) << "," << FieldText(c.pszRevision) << ","
            << FieldText(c.pszSerial);
}

} // namespace
