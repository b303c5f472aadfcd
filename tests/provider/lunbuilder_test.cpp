// The test builder of VDS LUN records: a failed build leaves a zero record and nothing
// allocated. What a build holds is checked through the provider's own dump of it.
#include "pal/combaseapi.h"
#include "tests/support/lunbuilder.h"
#include "tests/support/paltest.h"

#include <cstring>

namespace {

using orvtest::CLunBuilder;
using LunBuilderTest = orvtest::PalTest;

bool IsZero(const VDS_LUN_INFORMATION& lun)
{
    VDS_LUN_INFORMATION zero;
    std::memset(static_cast<void*>(&zero), 0, sizeof(zero));
    return std::memcmp(&zero, &lun, sizeof(lun)) == 0;
}

TEST_F(LunBuilderTest, AllocationFailureSweepLeavesAZeroRecordAndNoLeak)
{
    CLunBuilder builder = CLunBuilder::OrvaneLun()
                              .AddIdentifier(VDSStorageIdCodeSetBinary, VDSStorageIdTypeEUI64, "")
                              .AddInterconnect(VDS_IA_FCFS, std::nullopt, std::string("x"));
    ULONG n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 30u);
        VDS_LUN_INFORMATION lun;
        pal::FailTaskAllocAt(n);
        bool fBuilt = builder.Build(lun);
        pal::FailTaskAllocAt(0);
        if (fBuilt) {
            orvtest::FreeLunInformation(lun);
            EXPECT_TRUE(IsZero(lun)) << "freeing zeroes the record";
            break;
        }
        EXPECT_TRUE(IsZero(lun)) << "n=" << n;
    }
    // Four strings, the identifier list and one identifier's bytes, the interconnect list and
    // three port or address blocks.
    EXPECT_EQ(11u, n);
}

} // namespace
