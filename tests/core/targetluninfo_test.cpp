// CTargetLunInfo: setters that take ownership, and CopyFrom that copies present fields only and
// leaves an empty record when it fails.
#include "core/targetluninfo.h"
#include "tests/core/support/recordtext.h"
#include "tests/support/paltest.h"

#include <memory>
#include <string>
#include <vector>

namespace {

using orvtest::FieldText;
using orvtest::NewFullTarget;
using orvtest::StringFields;
using orvtest::TaskString;
using TargetLunInfoTest = orvtest::PalTest;

std::vector<std::string> Texts(const CTargetLunInfo& target)
{
    std::vector<std::string> texts;
    for (LPCWSTR psz : StringFields(target))
        texts.push_back(FieldText(psz));
    return texts;
}

TEST_F(TargetLunInfoTest, ANewRecordIsEmptyAndSettersTakeTheStringsThemselves)
{
    std::unique_ptr<CTargetLunInfo> pTarget(new (std::nothrow) CTargetLunInfo);
    ASSERT_NE(nullptr, pTarget);
    EXPECT_EQ(std::vector<std::string>(10, "<null>"), Texts(*pTarget));
    LPWSTR pszSerial = TaskString("C4nB1JQzK9aX");
    LPWSTR pszFiler = TaskString("f1");
    LPWSTR pszSource = TaskString("/vol/vol1/lun1");
    pTarget->SetSerialNo(pszSerial);
    pTarget->SetFilerNameAndSourceLunPath(pszFiler, pszSource);
    EXPECT_EQ(pszSerial, pTarget->SerialNo());
    EXPECT_EQ(pszFiler, pTarget->FilerName());
    EXPECT_EQ(pszSource, pTarget->SourceLunPath());
}

TEST_F(TargetLunInfoTest, CopyFromCopiesEveryField)
{
    std::unique_ptr<CTargetLunInfo> pSource(NewFullTarget("s-"));
    CTargetLunInfo copy;
    ASSERT_TRUE(copy.CopyFrom(*pSource));
    EXPECT_EQ(
        (std::vector<std::string>{"s-vendor", "s-product", "s-revision", "s-serial", "s-path1",
                                  "s-path2", "s-device", "s-snapshot", "s-filer", "s-source"}),
        Texts(copy));
    std::vector<LPCWSTR> sourceFields = StringFields(*pSource);
    std::vector<LPCWSTR> copyFields = StringFields(copy);
    for (size_t i = 0; i < sourceFields.size(); ++i)
        EXPECT_NE(sourceFields[i], copyFields[i]) << "field " << i << " is a copy";
    EXPECT_EQ(nullptr, copy.m_pNext);
    ASSERT_TRUE(copy.CopyFrom(copy));
    EXPECT_EQ(copyFields, StringFields(copy)) << "a copy onto itself changes nothing";
}

TEST_F(TargetLunInfoTest, CopyFromLeavesAbsentFieldsAbsent)
{
    CTargetLunInfo source;
    source.SetSerialNo(TaskString("S1"));
    source.SetDeviceId(TaskString("UNKNOWN"));
    std::unique_ptr<CTargetLunInfo> pDest(NewFullTarget("old-"));
    ASSERT_TRUE(pDest->CopyFrom(source));
    EXPECT_EQ((std::vector<std::string>{"<null>", "<null>", "<null>", "S1", "<null>", "<null>",
                                        "UNKNOWN", "<null>", "<null>", "<null>"}),
              Texts(*pDest));
}

TEST_F(TargetLunInfoTest, CopyFromSweepLeavesAnEmptyRecordOnFailure)
{
    std::unique_ptr<CTargetLunInfo> pSource(NewFullTarget("s-"));
    ULONG n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 20u);
        std::unique_ptr<CTargetLunInfo> pDest(NewFullTarget("d-"));
        pal::FailTaskAllocAt(n);
        BOOL fOk = pDest->CopyFrom(*pSource);
        pal::FailTaskAllocAt(0);
        if (fOk) {
            EXPECT_EQ(Texts(*pSource), Texts(*pDest));
            break;
        }
        EXPECT_EQ(std::vector<std::string>(10, "<null>"), Texts(*pDest)) << "n=" << n;
    }
    EXPECT_EQ(11u, n) << "ten strings are copied";
}

} // namespace
