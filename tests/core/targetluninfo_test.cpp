// CTargetLunInfo: setters that take ownership, and CopyFrom that copies present fields only and
// leaves an empty record when it fails.
#include "core/targetluninfo.h"
#include "tests/core/support/recordtext.h"
#include "tests/support/paltest.h"

#include <memory>
#include <string>
#include <vector>

namespace {

using orvtest::NewFullTarget;
using orvtest::StringFields;
using orvtest::TaskString;
using TargetLunInfoTest = orvtest::PalTest;
using Texts = std::vector<std::string>;

Texts TextsOf(const CTargetLunInfo& target)
{
    return orvtest::FieldTexts(StringFields(target));
}

TEST_F(TargetLunInfoTest, ANewRecordIsEmptyAndSettersTakeTheStringsThemselves)
{
    std::unique_ptr<CTargetLunInfo> pTarget(new (std::nothrow) CTargetLunInfo);
    ASSERT_NE(nullptr, pTarget);
    EXPECT_EQ(Texts(10, "<null>"), TextsOf(*pTarget));
    LPWSTR pszSerial = TaskString("C4nB1JQzK9aX");
    LPWSTR pszFiler = TaskString("f1");
    LPWSTR pszSource = TaskString("/vol/vol1/lun1");
    pTarget->SetSerialNo(pszSerial);
    pTarget->SetFilerNameAndSourceLunPath(pszFiler, pszSource);
    EXPECT_EQ(pszSerial, pTarget->SerialNo());
    EXPECT_EQ(pszFiler, pTarget->FilerName());
    EXPECT_EQ(pszSource, pTarget->SourceLunPath());
}

TEST_F(TargetLunInfoTest, CopyFromCopiesEveryPresentField)
{
    std::unique_ptr<CTargetLunInfo> pSource(NewFullTarget("s-"));
    CTargetLunInfo copy;
    ASSERT_TRUE(copy.CopyFrom(*pSource));
    EXPECT_EQ((Texts{"s-vendor", "s-product", "s-revision", "s-serial", "s-path1", "s-path2",
                     "s-device", "s-snapshot", "s-filer", "s-source"}),
              TextsOf(copy));
    std::vector<LPCWSTR> sourceFields = StringFields(*pSource);
    std::vector<LPCWSTR> copyFields = StringFields(copy);
    for (size_t i = 0; i < sourceFields.size(); ++i)
        EXPECT_NE(sourceFields[i], copyFields[i]) << "field " << i << " is a copy";
    EXPECT_EQ(nullptr, copy.m_pNext);
    ASSERT_TRUE(copy.CopyFrom(copy));
    EXPECT_EQ(copyFields, StringFields(copy)) << "a copy onto itself changes nothing";

    CTargetLunInfo sparse;
    sparse.SetSerialNo(TaskString("S1"));
    sparse.SetDeviceId(TaskString("UNKNOWN"));
    ASSERT_TRUE(copy.CopyFrom(sparse));
    EXPECT_EQ((Texts{"<null>", "<null>", "<null>", "S1", "<null>", "<null>", "UNKNOWN", "<null>",
                     "<null>", "<null>"}),
              TextsOf(copy))
        << "absent fields stay absent";
}

TEST_F(TargetLunInfoTest, CopyFromSweepLeavesAnEmptyRecordOnFailure)
{
    std::unique_ptr<CTargetLunInfo> pSource(NewFullTarget("s-"));
    ULONG n = orvtest::SweepTaskAllocations([&](ULONG n) {
        std::unique_ptr<CTargetLunInfo> pDest(NewFullTarget("d-"));
        pal::FailTaskAllocAt(n);
        BOOL fOk = pDest->CopyFrom(*pSource);
        EXPECT_EQ(fOk ? TextsOf(*pSource) : Texts(10, "<null>"), TextsOf(*pDest)) << "n=" << n;
        return fOk != FALSE;
    });
    EXPECT_EQ(11u, n) << "ten strings are copied";
}

} // namespace
