// CSnapshotEntry: source identity copied whole or not at all, target identity moved without
// allocation, deep copy that keeps absent fields absent and resets the entry on failure.
#include "core/linkedlist.h"
#include "core/snapshotentry.h"
#include "core/targetluninfo.h"
#include "tests/core/support/recordtext.h"
#include "tests/support/paltest.h"

#include <memory>
#include <string>
#include <vector>

namespace {

using orvtest::FieldText;
using orvtest::FieldTexts;
using orvtest::NewFullEntry;
using orvtest::StringFields;
using SnapshotEntryTest = orvtest::PalTest;
using Texts = std::vector<std::string>;

const GUID kSnapshotId = {
    0xa1b2c3d4, 0x1111, 0x2222, {0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa}};

Texts SourceTexts(const CSnapshotEntry& entry)
{
    return FieldTexts({entry.SourceLunVendorId(), entry.SourceLunProductId(),
                       entry.SourceLunProductRevision(), entry.SourceSerialNo(), entry.SourcePath(),
                       entry.SourceDrive()});
}

TEST_F(SnapshotEntryTest, ANewEntryIsZeroedAndSetFilerTakesTheStringItself)
{
    std::unique_ptr<CSnapshotEntry> pEntry(new (std::nothrow) CSnapshotEntry);
    ASSERT_NE(nullptr, pEntry);
    EXPECT_TRUE(IsEqualGUID(GUID_NULL, pEntry->SnapshotId()));
    EXPECT_EQ(Texts(13, "<null>"), FieldTexts(StringFields(*pEntry)));
    EXPECT_EQ(SNAPSHOT_ATTR_NONE, pEntry->SnapshotAttr());
    LPWSTR pszFiler = orvtest::TaskString("filer1");
    pEntry->SetFiler(pszFiler);
    EXPECT_EQ(pszFiler, pEntry->Filer());
}

TEST_F(SnapshotEntryTest, SetSourceLunInfoCopiesTheSixArgumentsNullAsEmpty)
{
    CSnapshotEntry entry;
    const WCHAR szVendor[] = W("ORVANE");
    ASSERT_TRUE(entry.SetSourceLunInfo(szVendor, W("LUN"), W("0.2"), W("C4nB1JQzK9aX"),
                                       W("/vol/vol1/lun1"), W("E:\\")));
    EXPECT_EQ((Texts{"ORVANE", "LUN", "0.2", "C4nB1JQzK9aX", "/vol/vol1/lun1", "E:\\"}),
              SourceTexts(entry));
    EXPECT_NE(szVendor, entry.SourceLunVendorId()) << "a copy, not the caller's string";
    ASSERT_TRUE(
        entry.SetSourceLunInfo(W("ORVANE"), W("LUN"), W("0.2"), W("S1"), W("/v/l"), nullptr));
    EXPECT_EQ((Texts{"ORVANE", "LUN", "0.2", "S1", "/v/l", ""}), SourceTexts(entry));
    ASSERT_TRUE(entry.SetSourceLunInfo(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(Texts(6, ""), SourceTexts(entry));
}

TEST_F(SnapshotEntryTest, SetSourceLunInfoSweepFreesAllSixOnFailureAndTouchesNothingElse)
{
    ULONG n = orvtest::SweepTaskAllocations([](ULONG n) {
        std::unique_ptr<CSnapshotEntry> pEntry(NewFullEntry("old-"));
        pal::FailTaskAllocAt(n);
        BOOL fOk = pEntry->SetSourceLunInfo(W("ORVANE"), W("LUN"), W("0.2"), W("S1"), W("/v/l"),
                                            W("E:\\"));
        EXPECT_EQ(6u, pal::TaskAllocations());
        pal::FailTaskAllocAt(0);
        EXPECT_EQ("old-filer", FieldText(pEntry->Filer()));
        EXPECT_EQ("old-tserial", FieldText(pEntry->TargetLunSerialNo()));
        EXPECT_EQ(SNAPSHOT_ATTR_TXF_RECOVERY, pEntry->SnapshotAttr());
        const Texts expected =
            fOk ? Texts{"ORVANE", "LUN", "0.2", "S1", "/v/l", "E:\\"} : Texts(6, "<null>");
        EXPECT_EQ(expected, SourceTexts(*pEntry)) << "n=" << n;
        return fOk != FALSE;
    });
    EXPECT_EQ(7u, n);
}

TEST_F(SnapshotEntryTest, TakeTargetLunInfoMovesSixFieldsWithoutAllocating)
{
    std::unique_ptr<CSnapshotEntry> pEntry(NewFullEntry("e-"));
    std::unique_ptr<CTargetLunInfo> pTarget(orvtest::NewFullTarget("t-"));
    std::vector<LPCWSTR> moved = StringFields(*pTarget);
    moved.resize(6);
    pal::FailTaskAllocAt(1);
    pEntry->TakeTargetLunInfo(*pTarget);
    EXPECT_EQ(0u, pal::TaskAllocations());
    std::vector<LPCWSTR> taken = StringFields(*pEntry);
    EXPECT_EQ(moved, std::vector<LPCWSTR>(taken.begin() + 7, taken.end()))
        << "the very strings, not copies";
    EXPECT_EQ((Texts{"<null>", "<null>", "<null>", "<null>", "<null>", "<null>", "t-device",
                     "t-snapshot", "t-filer", "t-source"}),
              FieldTexts(StringFields(*pTarget)));
    EXPECT_EQ("e-filer", FieldText(pEntry->Filer()));
    EXPECT_EQ("e-serial", FieldText(pEntry->SourceSerialNo()));
}

TEST_F(SnapshotEntryTest, CopyFromCopiesEveryPresentFieldButTheLinks)
{
    CLinkedList<CSnapshotEntry> lst;
    CSnapshotEntry* pSource = NewFullEntry("s-");
    lst.AddTail(pSource);
    lst.AddTail(NewFullEntry("t-"));
    CSnapshotEntry copy;
    ASSERT_TRUE(copy.CopyFrom(*pSource));
    EXPECT_TRUE(IsEqualGUID(pSource->SnapshotId(), copy.SnapshotId()));
    EXPECT_EQ(SNAPSHOT_ATTR_TXF_RECOVERY, copy.SnapshotAttr());
    EXPECT_EQ(FieldTexts(StringFields(*pSource)), FieldTexts(StringFields(copy)));
    std::vector<LPCWSTR> sourceFields = StringFields(*pSource);
    std::vector<LPCWSTR> copyFields = StringFields(copy);
    for (size_t i = 0; i < sourceFields.size(); ++i)
        EXPECT_NE(sourceFields[i], copyFields[i]) << "field " << i << " is a copy";
    EXPECT_EQ(nullptr, copy.m_pNext);
    EXPECT_EQ(nullptr, copy.m_pPrev);
    ASSERT_TRUE(copy.CopyFrom(copy));
    EXPECT_EQ(copyFields, StringFields(copy)) << "a copy onto itself changes nothing";

    CSnapshotEntry sparse;
    sparse.SetSnapshotId(kSnapshotId);
    ASSERT_TRUE(
        sparse.SetSourceLunInfo(W("ORVANE"), W("LUN"), W("0.2"), W("S1"), W("/v/l"), W("E:\\")));
    ASSERT_TRUE(copy.CopyFrom(sparse));
    EXPECT_EQ((Texts{"<null>", "ORVANE", "LUN", "0.2", "S1", "/v/l", "E:\\", "<null>", "<null>",
                     "<null>", "<null>", "<null>", "<null>"}),
              FieldTexts(StringFields(copy)))
        << "absent fields are copied as absent, not as empty, and the old values are gone";
    EXPECT_EQ(SNAPSHOT_ATTR_NONE, copy.SnapshotAttr());
    EXPECT_TRUE(IsEqualGUID(kSnapshotId, copy.SnapshotId()));
}

TEST_F(SnapshotEntryTest, CopyFromSweepResetsTheWholeDestinationOnFailure)
{
    std::unique_ptr<CSnapshotEntry> pSource(NewFullEntry("s-"));
    ULONG n = orvtest::SweepTaskAllocations([&](ULONG n) {
        std::unique_ptr<CSnapshotEntry> pDest(NewFullEntry("d-"));
        pDest->SetSnapshotId(kSnapshotId);
        pal::FailTaskAllocAt(n);
        if (pDest->CopyFrom(*pSource)) {
            EXPECT_EQ(FieldTexts(StringFields(*pSource)), FieldTexts(StringFields(*pDest)));
            EXPECT_TRUE(IsEqualGUID(pSource->SnapshotId(), pDest->SnapshotId()));
            return true;
        }
        EXPECT_EQ(Texts(13, "<null>"), FieldTexts(StringFields(*pDest))) << "n=" << n;
        EXPECT_TRUE(IsEqualGUID(GUID_NULL, pDest->SnapshotId())) << "n=" << n;
        EXPECT_EQ(SNAPSHOT_ATTR_NONE, pDest->SnapshotAttr()) << "n=" << n;
        return false;
    });
    EXPECT_EQ(14u, n) << "thirteen strings are copied";
}

} // namespace
