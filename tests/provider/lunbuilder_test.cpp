// The test builder of VDS LUN records: every pointer its own task block, and a failed build
// leaves a zero record and nothing allocated.
#include "pal/combaseapi.h"
#include "tests/support/lunbuilder.h"
#include "tests/support/paltest.h"

#include <cstring>
#include <string>

namespace {

using orvtest::CLunBuilder;
using LunBuilderTest = orvtest::PalTest;

bool IsZero(const VDS_LUN_INFORMATION& lun)
{
    VDS_LUN_INFORMATION zero;
    std::memset(static_cast<void*>(&zero), 0, sizeof(zero));
    return std::memcmp(&zero, &lun, sizeof(lun)) == 0;
}

TEST_F(LunBuilderTest, BuildsTheRecordAsDescribed)
{
    orvtest::CLunRecord lun(CLunBuilder::OrvaneLun().AddScsiInterconnect("/v/l-c", "f:/v/l:s"));
    ASSERT_TRUE(lun.Built());
    EXPECT_EQ(VDSBusTypeiScsi, lun->m_BusType);
    EXPECT_STREQ("ORVANE", lun->m_szVendorId);
    EXPECT_STREQ("C4nB1JQzK9aX", lun->m_szSerialNumber);
    ASSERT_EQ(1u, lun->m_deviceIdDescriptor.m_cIdentifiers);
    EXPECT_EQ(24u, lun->m_deviceIdDescriptor.m_rgIdentifiers[0].m_cbIdentifier);
    ASSERT_EQ(2u, lun->m_cInterconnects);
    const VDS_INTERCONNECT& scsi = lun->m_rgInterconnects[1];
    EXPECT_EQ(VDS_IA_SCSI, scsi.m_addressType);
    EXPECT_EQ(std::string("/v/l-c", 7),
              std::string(reinterpret_cast<char*>(scsi.m_pbAddress), scsi.m_cbAddress));
    EXPECT_EQ(std::string("f:/v/l:s", 9),
              std::string(reinterpret_cast<char*>(scsi.m_pbPort), scsi.m_cbPort));
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
