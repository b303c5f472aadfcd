// The provider's interconnect in a VDS record: one SCSI entry with Path1 as address bytes and
// Path2 as port bytes, or, after a failure, no interconnect at all.
#include "diag/trace.h"
#include "pal/combaseapi.h"
#include "pal/winerror.h"
#include "provider/interconnect.h"
#include "tests/support/lunbuilder.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include <string>

namespace {

using orvtest::AnsiBytes;
using orvtest::CLunBuilder;
using orvtest::CLunRecord;
using orvtest::TakeTraceText;

class InterconnectTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
    }
};

// A record as VSS gives it: two interconnects of its own, with port and address bytes.
CLunBuilder VssRecord()
{
    return CLunBuilder::OrvaneLun().AddInterconnect(VDS_IA_FCPH, AnsiBytes("p2"), AnsiBytes("a2"));
}

void ExpectProviderInterconnect(VDS_LUN_INFORMATION& lun, const std::string& path1,
                                const std::string& path2)
{
    ASSERT_EQ(1u, lun.m_cInterconnects);
    ASSERT_NE(nullptr, lun.m_rgInterconnects);
    const VDS_INTERCONNECT& ic = lun.m_rgInterconnects[0];
    EXPECT_EQ(VDS_IA_SCSI, ic.m_addressType);
    EXPECT_EQ(AnsiBytes(path1),
              std::string(reinterpret_cast<char*>(ic.m_pbAddress), ic.m_cbAddress));
    EXPECT_EQ(AnsiBytes(path2), std::string(reinterpret_cast<char*>(ic.m_pbPort), ic.m_cbPort));
}

void ExpectNoInterconnect(VDS_LUN_INFORMATION& lun)
{
    EXPECT_EQ(0u, lun.m_cInterconnects);
    EXPECT_EQ(nullptr, lun.m_rgInterconnects);
}

TEST_F(InterconnectTest, ReplacesEveryInterconnectWithTheProvidersOne)
{
    CLunRecord lun(VssRecord());
    ASSERT_TRUE(lun.Built());
    ASSERT_EQ(2u, lun->m_cInterconnects);
    // The old entries' buffers and list are freed (AddressSanitizer would report a leak).
    EXPECT_HR(S_OK, SetLunInterconnect(*lun, W("/v1/lun1-clone"), W("f1:/v1/lun1:snap:1")));
    ExpectProviderInterconnect(*lun, "/v1/lun1-clone", "f1:/v1/lun1:snap:1");
    EXPECT_EQ("", TakeTraceText());

    CLunRecord bare{CLunBuilder()};
    ASSERT_TRUE(bare.Built());
    EXPECT_HR(S_OK, SetLunInterconnect(*bare, W(""), W("")));
    ExpectProviderInterconnect(*bare, "", "");
    EXPECT_HR(S_OK, SetLunInterconnect(*bare, W("/vol/v/lun"), W("filer:/vol/v/src:s")));
    ExpectProviderInterconnect(*bare, "/vol/v/lun", "filer:/vol/v/src:s");
}

TEST_F(InterconnectTest, AMissingPathIsOutOfMemoryAndLeavesNoInterconnect)
{
    const LPCWSTR cases[][2] = {{nullptr, W("f:/l:s")}, {W("/l"), nullptr}, {nullptr, nullptr}};
    for (const auto& c : cases) {
        CLunRecord lun(VssRecord());
        ASSERT_TRUE(lun.Built());
        EXPECT_HR(E_OUTOFMEMORY, SetLunInterconnect(*lun, c[0], c[1]));
        ExpectNoInterconnect(*lun);
    }
}

TEST_F(InterconnectTest, AllocationFailureSweepLeavesNoInterconnectAndNoLeak)
{
    ULONG n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 10u) << "the operation never succeeded";
        CLunRecord lun(VssRecord());
        ASSERT_TRUE(lun.Built());
        pal::FailTaskAllocAt(n);
        HRESULT hr = SetLunInterconnect(*lun, W("/v1/lun1-clone"), W("f1:/v1/lun1:snap"));
        ULONG cAllocations = pal::TaskAllocations();
        pal::FailTaskAllocAt(0);
        EXPECT_EQ(3u, cAllocations) << "both conversions and the list are always attempted";
        if (hr == S_OK) {
            ExpectProviderInterconnect(*lun, "/v1/lun1-clone", "f1:/v1/lun1:snap");
            break;
        }
        EXPECT_HR(E_OUTOFMEMORY, hr) << "n=" << n;
        ExpectNoInterconnect(*lun);
        EXPECT_STREQ("ORVANE", lun->m_szVendorId) << "the rest of the record is untouched";
    }
    EXPECT_EQ(4u, n) << "three allocations can fail";
}

TEST_F(InterconnectTest, FixKeepsEveryBusTypeButISCSIWhichBecomesSCSI)
{
    const VDS_STORAGE_BUS_TYPE cases[][2] = {
        {VDSBusTypeiScsi, VDSBusTypeScsi}, {VDSBusTypeFibre, VDSBusTypeFibre},
        {VDSBusTypeScsi, VDSBusTypeScsi},  {VDSBusTypeUnknown, VDSBusTypeUnknown},
        {VDSBusTypeSas, VDSBusTypeSas},    {VDSBusTypeVirtual, VDSBusTypeVirtual},
    };
    for (const auto& c : cases) {
        CLunRecord lun(VssRecord().BusType(c[0]));
        ASSERT_TRUE(lun.Built());
        EXPECT_HR(S_OK, FixInterconnectAddress(*lun, W("/v1/lun1-clone"), W("f1:/v1/lun1:s")));
        EXPECT_EQ(c[1], lun->m_BusType) << c[0];
        EXPECT_TRUE(IsEqualGUID(GUID_NULL, lun->m_diskSignature));
        ExpectProviderInterconnect(*lun, "/v1/lun1-clone", "f1:/v1/lun1:s");
        EXPECT_STREQ("C4nB1JQzK9aX", lun->m_szSerialNumber) << "the identity stays";
        EXPECT_EQ("Fixing interconnect address\n", TakeTraceText());
    }
    CLunRecord lun(VssRecord());
    ASSERT_TRUE(lun.Built());
    TraceSetLevel(TRACE_LEVEL_WARNING);
    EXPECT_HR(S_OK, FixInterconnectAddress(*lun, W("/a"), W("f:/b:c")));
    EXPECT_EQ("", TakeTraceText()) << "traced at level 3 only";
}

TEST_F(InterconnectTest, FixPassesOnTheFailureAfterRewritingTheRest)
{
    CLunRecord lun(VssRecord());
    ASSERT_TRUE(lun.Built());
    pal::FailTaskAllocAt(3);
    EXPECT_HR(E_OUTOFMEMORY, FixInterconnectAddress(*lun, W("/a"), W("f:/b:c")));
    EXPECT_EQ(VDSBusTypeScsi, lun->m_BusType);
    EXPECT_TRUE(IsEqualGUID(GUID_NULL, lun->m_diskSignature));
    ExpectNoInterconnect(*lun);
}

} // namespace
