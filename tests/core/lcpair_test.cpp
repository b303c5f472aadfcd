// CLCPair and its LC_PAIR block: Set copies present strings into a fresh block, SetClone keeps
// an equal clone and replaces another, and a failure never leaves half a pair.
#include "core/lcpair.h"
#include "core/snapshotattr.h"
#include "tests/core/support/recordtext.h"
#include "tests/support/paltest.h"

#include <string>
#include <vector>

namespace {

using orvtest::FieldText;
using LCPairTest = orvtest::PalTest;
using Texts = std::vector<std::string>;

Texts TextsOf(const CLCPair& pair)
{
    return orvtest::FieldTexts({pair.Filer(), pair.LunPath(), pair.Clone(), pair.Device()});
}

TEST_F(LCPairTest, SetCopiesPresentStringsIntoAFreshBlock)
{
    CLCPair pair;
    EXPECT_EQ(nullptr, pair.Pair());
    EXPECT_EQ(Texts(4, "<null>"), TextsOf(pair));
    EXPECT_EQ(0, pair.SnapshotAttr());

    const WCHAR szFiler[] = W("f1");
    ASSERT_TRUE(pair.Set(szFiler, W("/vol/vol1/lun1"), nullptr, W("\\\\?\\Volume{1}"),
                         SNAPSHOT_ATTR_AUTO_RECOVERY));
    ASSERT_NE(nullptr, pair.Pair());
    EXPECT_EQ((Texts{"f1", "/vol/vol1/lun1", "<null>", "\\\\?\\Volume{1}"}), TextsOf(pair));
    EXPECT_NE(szFiler, pair.Filer());
    EXPECT_EQ(SNAPSHOT_ATTR_AUTO_RECOVERY, pair.Pair()->eSnapshotAttr);
    EXPECT_EQ(pair.Pair()->Filer, pair.Filer());
    // A second Set releases the first block (AddressSanitizer checks) and starts afresh.
    ASSERT_TRUE(pair.Set(nullptr, W("/v/l2"), W("/v/l2-clone"), nullptr, SNAPSHOT_ATTR_NONE));
    EXPECT_EQ((Texts{"<null>", "/v/l2", "/v/l2-clone", "<null>"}), TextsOf(pair));
    EXPECT_EQ(SNAPSHOT_ATTR_NONE, pair.SnapshotAttr());
}

TEST_F(LCPairTest, SetSweepLeavesNoBlockOnFailure)
{
    ULONG n = orvtest::SweepTaskAllocations([](ULONG n) {
        CLCPair pair;
        EXPECT_TRUE(pair.Set(W("old"), W("old"), W("old"), W("old"), 1));
        pal::FailTaskAllocAt(n);
        if (!pair.Set(W("f1"), W("/v/l"), W("/v/l-c"), W("dev"), SNAPSHOT_ATTR_TXF_RECOVERY)) {
            EXPECT_EQ(nullptr, pair.Pair()) << "n=" << n;
            return false;
        }
        EXPECT_EQ((Texts{"f1", "/v/l", "/v/l-c", "dev"}), TextsOf(pair));
        EXPECT_EQ(SNAPSHOT_ATTR_TXF_RECOVERY, pair.SnapshotAttr());
        return true;
    });
    EXPECT_EQ(6u, n) << "the block and four strings";
}

TEST_F(LCPairTest, SetCloneKeepsAnEqualCloneReplacesAnotherAndFailsWithoutChange)
{
    CLCPair pair;
    ASSERT_TRUE(pair.Set(W("f1"), W("/v/l"), W("/v/l-clone"), W("dev"), 1));
    LPCWSTR pszBefore = pair.Clone();
    pal::FailTaskAllocAt(1);
    ASSERT_TRUE(pair.SetClone(W("/v/l-clone")));
    EXPECT_EQ(0u, pal::TaskAllocations()) << "an equal clone is not copied again";
    EXPECT_EQ(pszBefore, pair.Clone()) << "the same string object stays";
    EXPECT_FALSE(pair.SetClone(W("/v/other")));
    EXPECT_EQ((Texts{"f1", "/v/l", "/v/l-clone", "dev"}), TextsOf(pair)) << "as it was";
    pal::FailTaskAllocAt(0);
    ASSERT_TRUE(pair.SetClone(W("/v/l-clone2")));
    EXPECT_EQ((Texts{"f1", "/v/l", "/v/l-clone2", "dev"}), TextsOf(pair));

    ASSERT_TRUE(pair.Set(W("f1"), W("/v/l"), nullptr, W("dev"), 1));
    ASSERT_TRUE(pair.SetClone(W("/v/l-c")));
    EXPECT_EQ("/v/l-c", FieldText(pair.Clone())) << "an absent clone is set";
    ASSERT_TRUE(pair.SetClone(nullptr));
    EXPECT_EQ("", FieldText(pair.Clone())) << "a null clone is duplicated as the empty string";
}

TEST_F(LCPairTest, SetCloneOnAPairWithoutBlockMakesOne)
{
    for (ULONG n = 1; n <= 2; ++n) {
        CLCPair pair;
        pal::FailTaskAllocAt(n);
        EXPECT_FALSE(pair.SetClone(W("/v/l-c"))) << "n=" << n;
        EXPECT_EQ(nullptr, pair.Pair()) << "n=" << n;
    }
    pal::FailTaskAllocAt(0);
    CLCPair pair;
    ASSERT_TRUE(pair.SetClone(W("/v/l-c")));
    EXPECT_EQ((Texts{"<null>", "<null>", "/v/l-c", "<null>"}), TextsOf(pair));
}

TEST_F(LCPairTest, PairRecordsHaveTheServiceLayout)
{
    EXPECT_EQ(40u, sizeof(LC_PAIR));
    EXPECT_EQ(16u, sizeof(LC_PAIR_ARRAY));
}

} // namespace
