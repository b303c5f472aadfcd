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

std::vector<std::string> Texts(const CLCPair& pair)
{
    return {FieldText(pair.Filer()), FieldText(pair.LunPath()), FieldText(pair.Clone()),
            FieldText(pair.Device())};
}

TEST_F(LCPairTest, ANewPairHoldsNoBlock)
{
    CLCPair pair;
    EXPECT_EQ(nullptr, pair.Pair());
    EXPECT_EQ(std::vector<std::string>(4, "<null>"), Texts(pair));
    EXPECT_EQ(0, pair.SnapshotAttr());
}

TEST_F(LCPairTest, SetCopiesPresentStringsAndTheAttribute)
{
    CLCPair pair;
    const WCHAR szFiler[] = W("f1");
    ASSERT_TRUE(pair.Set(szFiler, W("/vol/vol1/lun1"), nullptr, W("\\\\?\\Volume{1}"),
                         SNAPSHOT_ATTR_AUTO_RECOVERY));
    ASSERT_NE(nullptr, pair.Pair());
    EXPECT_EQ((std::vector<std::string>{"f1", "/vol/vol1/lun1", "<null>", "\\\\?\\Volume{1}"}),
              Texts(pair));
    EXPECT_NE(szFiler, pair.Filer());
    EXPECT_EQ(SNAPSHOT_ATTR_AUTO_RECOVERY, pair.Pair()->eSnapshotAttr);
    EXPECT_EQ(pair.Pair()->Filer, pair.Filer());
    // A second Set releases the first block (AddressSanitizer checks) and starts afresh.
    ASSERT_TRUE(pair.Set(nullptr, W("/v/l2"), W("/v/l2-clone"), nullptr, SNAPSHOT_ATTR_NONE));
    EXPECT_EQ((std::vector<std::string>{"<null>", "/v/l2", "/v/l2-clone", "<null>"}), Texts(pair));
    EXPECT_EQ(SNAPSHOT_ATTR_NONE, pair.SnapshotAttr());
}

TEST_F(LCPairTest, SetSweepLeavesNoBlockOnFailure)
{
    ULONG n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 20u);
        CLCPair pair;
        ASSERT_TRUE(pair.Set(W("old"), W("old"), W("old"), W("old"), 1));
        pal::FailTaskAllocAt(n);
        BOOL fOk = pair.Set(W("f1"), W("/v/l"), W("/v/l-c"), W("dev"), SNAPSHOT_ATTR_TXF_RECOVERY);
        pal::FailTaskAllocAt(0);
        if (fOk) {
            EXPECT_EQ((std::vector<std::string>{"f1", "/v/l", "/v/l-c", "dev"}), Texts(pair));
            EXPECT_EQ(SNAPSHOT_ATTR_TXF_RECOVERY, pair.SnapshotAttr());
            break;
        }
        EXPECT_EQ(nullptr, pair.Pair()) << "n=" << n;
    }
    EXPECT_EQ(6u, n) << "the block and four strings";
}

TEST_F(LCPairTest, SetCloneKeepsAnEqualCloneAndReplacesAnother)
{
    CLCPair pair;
    ASSERT_TRUE(pair.Set(W("f1"), W("/v/l"), W("/v/l-clone"), W("dev"), 1));
    LPCWSTR pszBefore = pair.Clone();
    pal::FailTaskAllocAt(1);
    ASSERT_TRUE(pair.SetClone(W("/v/l-clone")));
    EXPECT_EQ(0u, pal::TaskAllocations()) << "an equal clone is not copied again";
    EXPECT_EQ(pszBefore, pair.Clone()) << "the same string object stays";
    pal::FailTaskAllocAt(0);
    ASSERT_TRUE(pair.SetClone(W("/v/l-clone2")));
    EXPECT_EQ("/v/l-clone2", FieldText(pair.Clone()));
    EXPECT_EQ((std::vector<std::string>{"f1", "/v/l", "/v/l-clone2", "dev"}), Texts(pair));
}

TEST_F(LCPairTest, SetCloneOfAnAbsentCloneOrANullArgument)
{
    CLCPair pair;
    ASSERT_TRUE(pair.Set(W("f1"), W("/v/l"), nullptr, W("dev"), 1));
    ASSERT_TRUE(pair.SetClone(W("/v/l-c")));
    EXPECT_EQ("/v/l-c", FieldText(pair.Clone()));
    ASSERT_TRUE(pair.SetClone(nullptr));
    EXPECT_EQ("", FieldText(pair.Clone())) << "a null clone is duplicated as the empty string";
}

TEST_F(LCPairTest, AFailedSetCloneKeepsThePairAsItWas)
{
    CLCPair pair;
    ASSERT_TRUE(pair.Set(W("f1"), W("/v/l"), W("/v/l-c"), W("dev"), 1));
    pal::FailTaskAllocAt(1);
    EXPECT_FALSE(pair.SetClone(W("/v/other")));
    pal::FailTaskAllocAt(0);
    EXPECT_EQ((std::vector<std::string>{"f1", "/v/l", "/v/l-c", "dev"}), Texts(pair));
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
    EXPECT_EQ((std::vector<std::string>{"<null>", "<null>", "/v/l-c", "<null>"}), Texts(pair));
}

TEST_F(LCPairTest, PairRecordsHaveTheServiceLayout)
{
    EXPECT_EQ(40u, sizeof(LC_PAIR));
    EXPECT_EQ(16u, sizeof(LC_PAIR_ARRAY));
    LC_PAIR_ARRAY array = {2, nullptr};
    LC_PAIR pairs[2] = {};
    array.Pairs = pairs;
    EXPECT_EQ(reinterpret_cast<BYTE*>(&pairs[1]), reinterpret_cast<BYTE*>(array.Pairs) + 40)
        << "pairs are contiguous";
}

} // namespace
