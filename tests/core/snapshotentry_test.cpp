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
using orvtest::NewFullEntry;
using orvtest::NewFullTarget;
using orvtest::StringFields;
using orvtest::TaskString;
using SnapshotEntryTest = orvtest::PalTest;

const GUID kSnapshotId = {
    0xa1b2c3d4, 0x1111, 0x2222, {0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa}};

std::vector<std::string> SourceTexts(const CSnapshotEntry& entry)
{
    return {FieldText(entry.SourceLunVendorId()),
            FieldText(entry.SourceLunProductId()),
            FieldText(entry.SourceLunProductRevision()),
            FieldText(entry.SourceSerialNo()),
            FieldText(entry.SourcePath()),
            FieldText(entry.SourceDrive())};
}

std::vector<std::string> Texts(const std::vector<LPCWSTR>& fields)
{
    std::vector<std::string> texts;
    for (LPCWSTR psz : fields)
        texts.push_back(FieldText(psz));
    return texts;
}

bool AllAbsent(const std::vector<LPCWSTR>& fields)
{
    for (LPCWSTR psz : fields)
        if (psz)
            return false;
    return true;
}

TEST_F(SnapshotEntryTest, ANewEntryIsZeroedAndSettersStoreIdFilerAndAttribute)
{
    std::unique_ptr<CSnapshotEntry> pEntry(new (std::nothrow) CSnapshotEntry);
    ASSERT_NE(nullptr, pEntry);
    EXPECT_TRUE(IsEqualGUID(GUID_NULL, pEntry->SnapshotId()));
    EXPECT_TRUE(AllAbsent(StringFields(*pEntry)));
    EXPECT_EQ(SNAPSHOT_ATTR_NONE, pEntry->SnapshotAttr());
    pEntry->SetSnapshotId(kSnapshotId);
    LPWSTR pszFiler = TaskString("filer1");
    pEntry->SetFiler(pszFiler);
    pEntry->SetSnapshotAttr(-1);
    EXPECT_TRUE(IsEqualGUID(kSnapshotId, pEntry->SnapshotId()));
    EXPECT_EQ(pszFiler, pEntry->Filer()) << "the entry takes the string itself";
    EXPECT_EQ(-1, pEntry->SnapshotAttr());
}

TEST_F(SnapshotEntryTest, SetSourceLunInfoCopiesTheSixArgumentsInOrder)
{
    CSnapshotEntry entry;
    const WCHAR szVendor[] = W("ORVANE");
    ASSERT_TRUE(entry.SetSourceLunInfo(szVendor, W("LUN"), W("0.2"), W("C4nB1JQzK9aX"),
                                       W("/vol/vol1/lun1"), W("E:\\")));
    EXPECT_EQ((std::vector<std::string>{"ORVANE", "LUN", "0.2", "C4nB1JQzK9aX", "/vol/vol1/lun1",
                                        "E:\\"}),
              SourceTexts(entry));
    EXPECT_NE(szVendor, entry.SourceLunVendorId()) << "a copy, not the caller's string";
}

TEST_F(SnapshotEntryTest, SetSourceLunInfoStoresMissingArgumentsAsEmptyStrings)
{
    CSnapshotEntry entry;
    ASSERT_TRUE(
        entry.SetSourceLunInfo(W("ORVANE"), W("LUN"), W("0.2"), W("S1"), W("/v/l"), nullptr));
    ASSERT_NE(nullptr, entry.SourceDrive());
    EXPECT_EQ("", FieldText(entry.SourceDrive()));
    ASSERT_TRUE(entry.SetSourceLunInfo(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(std::vector<std::string>(6, ""), SourceTexts(entry));
}

TEST_F(SnapshotEntryTest, SetSourceLunInfoSweepFreesAllSixOnFailureAndTouchesNothingElse)
{
    ULONG n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 20u);
        std::unique_ptr<CSnapshotEntry> pEntry(NewFullEntry("old-"));
        pal::FailTaskAllocAt(n);
        BOOL fOk = pEntry->SetSourceLunInfo(W("ORVANE"), W("LUN"), W("0.2"), W("S1"), W("/v/l"),
                                            W("E:\\"));
        ULONG cAllocations = pal::TaskAllocations();
        pal::FailTaskAllocAt(0);
        EXPECT_EQ(6u, cAllocations);
        EXPECT_EQ("old-filer", FieldText(pEntry->Filer()));
        EXPECT_EQ("old-tserial", FieldText(pEntry->TargetLunSerialNo()));
        EXPECT_EQ(SNAPSHOT_ATTR_TXF_RECOVERY, pEntry->SnapshotAttr());
        if (fOk) {
            EXPECT_EQ((std::vector<std::string>{"ORVANE", "LUN", "0.2", "S1", "/v/l", "E:\\"}),
                      SourceTexts(*pEntry));
            break;
        }
        EXPECT_EQ(std::vector<std::string>(6, "<null>"), SourceTexts(*pEntry)) << "n=" << n;
    }
    EXPECT_EQ(7u, n);
}

TEST_F(SnapshotEntryTest, TakeTargetLunInfoMovesSixFieldsWithoutAllocating)
{
    std::unique_ptr<CSnapshotEntry> pEntry(NewFullEntry("e-"));
    std::unique_ptr<CTargetLunInfo> pTarget(NewFullTarget("t-"));
    std::vector<LPCWSTR> moved = {pTarget->VendorId(),        pTarget->ProductId(),
                                  pTarget->ProductRevision(), pTarget->SerialNo(),
                                  pTarget->TargetLunPath1(),  pTarget->TargetLunPath2()};
    pal::FailTaskAllocAt(1);
    pEntry->TakeTargetLunInfo(*pTarget);
    EXPECT_EQ(0u, pal::TaskAllocations());
    std::vector<LPCWSTR> taken = {pEntry->TargetLunVendorId(),
                                  pEntry->TargetLunProductId(),
                                  pEntry->TargetLunProductRevision(),
                                  pEntry->TargetLunSerialNo(),
                                  pEntry->TargetLunPath(),
                                  pEntry->TargetLunPath2()};
    EXPECT_EQ(moved, taken) << "the very strings, not copies";
    EXPECT_EQ((std::vector<std::string>{"<null>", "<null>", "<null>", "<null>", "<null>", "<null>",
                                        "t-device", "t-snapshot", "t-filer", "t-source"}),
              Texts(StringFields(*pTarget)));
    EXPECT_EQ("e-filer", FieldText(pEntry->Filer()));
    EXPECT_EQ("e-serial", FieldText(pEntry->SourceSerialNo()));
}

TEST_F(SnapshotEntryTest, CopyFromCopiesEveryFieldButTheLinks)
{
    CLinkedList<CSnapshotEntry> lst;
    CSnapshotEntry* pSource = NewFullEntry("s-");
    lst.AddTail(pSource);
    lst.AddTail(NewFullEntry("t-"));
    CSnapshotEntry copy;
    ASSERT_TRUE(copy.CopyFrom(*pSource));
    EXPECT_TRUE(IsEqualGUID(pSource->SnapshotId(), copy.SnapshotId()));
    EXPECT_EQ(SNAPSHOT_ATTR_TXF_RECOVERY, copy.SnapshotAttr());
    EXPECT_EQ(Texts(StringFields(*pSource)), Texts(StringFields(copy)));
    std::vector<LPCWSTR> sourceFields = StringFields(*pSource);
    std::vector<LPCWSTR> copyFields = StringFields(copy);
    for (size_t i = 0; i < sourceFields.size(); ++i)
        EXPECT_NE(sourceFields[i], copyFields[i]) << "field " << i << " is a copy";
    EXPECT_EQ(nullptr, copy.m_pNext);
    EXPECT_EQ(nullptr, copy.m_pPrev);
    ASSERT_TRUE(copy.CopyFrom(copy));
    EXPECT_EQ(copyFields, StringFields(copy)) << "a copy onto itself changes nothing";
}

TEST_F(SnapshotEntryTest, CopyFromKeepsAbsentFieldsAbsent)
{
    CSnapshotEntry source;
    source.SetSnapshotId(kSnapshotId);
    ASSERT_TRUE(
        source.SetSourceLunInfo(W("ORVANE"), W("LUN"), W("0.2"), W("S1"), W("/v/l"), W("E:\\")));
    std::unique_ptr<CSnapshotEntry> pDest(NewFullEntry("old-"));
    ASSERT_TRUE(pDest->CopyFrom(source));
    EXPECT_EQ(nullptr, pDest->Filer()) << "an absent Filer is copied as absent, not as empty";
    EXPECT_EQ(nullptr, pDest->TargetLunSerialNo()) << "the destination's old value is gone";
    EXPECT_EQ(nullptr, pDest->TargetLunPath2());
    EXPECT_EQ("S1", FieldText(pDest->SourceSerialNo()));
    EXPECT_EQ(SNAPSHOT_ATTR_NONE, pDest->SnapshotAttr());
    EXPECT_TRUE(IsEqualGUID(kSnapshotId, pDest->SnapshotId()));
}

TEST_F(SnapshotEntryTest, CopyFromSweepResetsTheWholeDestinationOnFailure)
{
    std::unique_ptr<CSnapshotEntry> pSource(NewFullEntry("s-"));
    ULONG n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 30u);
        std::unique_ptr<CSnapshotEntry> pDest(NewFullEntry("d-"));
        pDest->SetSnapshotId(kSnapshotId);
        pal::FailTaskAllocAt(n);
        BOOL fOk = pDest->CopyFrom(*pSource);
        pal::FailTaskAllocAt(0);
        if (fOk) {
            EXPECT_EQ(Texts(StringFields(*pSource)), Texts(StringFields(*pDest)));
            EXPECT_TRUE(IsEqualGUID(pSource->SnapshotId(), pDest->SnapshotId()));
            break;
        }
        EXPECT_TRUE(AllAbsent(StringFields(*pDest))) << "n=" << n;
        EXPECT_TRUE(IsEqualGUID(GUID_NULL, pDest->SnapshotId())) << "n=" << n;
        EXPECT_EQ(SNAPSHOT_ATTR_NONE, pDest->SnapshotAttr()) << "n=" << n;
    }
    EXPECT_EQ(14u, n) << "thirteen strings are copied";
}

} // namespace
