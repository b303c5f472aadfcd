// The trace dump of a VDS LUN record: exact lines at level 3 and above, nothing below.
#include "diag/trace.h"
#include "provider/lundump.h"
#include "tests/support/lunbuilder.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

using orvtest::AnsiBytes;
using orvtest::CLunBuilder;
using orvtest::CLunRecord;
using orvtest::TakeTraceText;

class LunDumpTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        TraceInit(TRACE_LEVEL_INFO, nullptr, nullptr, 0);
    }
};

// The address as "0x%08p" prints it: sixteen upper-case hexadecimal digits.
std::string Address(const void* pv)
{
    char sz[32];
    std::snprintf(sz, sizeof(sz), "0x%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(pv)));
    return sz;
}

CLunBuilder FullRecord()
{
    return CLunBuilder()
        .Version(1)
        .DeviceType(13, 2)
        .CommandQueueing(TRUE)
        .BusType(VDSBusTypeiScsi)
        .VendorId("ORVANE")
        .ProductId("LUN")
        .ProductRevision("0.2")
        .SerialNumber("C4nB1JQzK9aX")
        .DiskSignature(
            {0x6b1f2c3d, 0x4e5f, 0x7081, {0x92, 0xa3, 0xb4, 0xc5, 0xd6, 0xe7, 0xf8, 0x09}})
        .DescriptorVersion(1)
        .AddIdentifier(VDSStorageIdCodeSetAscii, VDSStorageIdTypeVendorId,
                       "ORVANE  LUN C4nB1JQzK9aX")
        .AddIdentifier(VDSStorageIdCodeSetBinary, VDSStorageIdTypeFCPHName,
                       std::string("\x01"
                                   "A\0B",
                                   4))
        .AddIdentifier(VDSStorageIdCodeSetBinary, VDSStorageIdTypeVendorSpecific, "")
        .AddInterconnect(VDS_IA_UNKNOWN, AnsiBytes("iqn.1992-08.com.orvane:sn.4055"),
                         AnsiBytes("192.0.2.15:3260"))
        .AddInterconnect(VDS_IA_SCSI, AnsiBytes("f1:/v1/lun1:snap"), std::nullopt)
        .AddInterconnect(VDS_IA_FCPH, std::nullopt, std::string("/v1/lun1-clone"));
}

const char kFullRecordBody[] = "    Version=1\n"
                               "    DiskSignature={6b1f2c3d-4e5f-7081-92a3-b4c5d6e7f809}\n"
                               "    DeviceType=13\n"
                               "    DeviceTypeMod=2\n"
                               "    CommandQueuing=1\n"
                               "    BusType=9\n"
                               "    VendorId=ORVANE\n"
                               "    ProductId=LUN\n"
                               "    ProductRevision=0.2\n"
                               "    SerialNumber=C4nB1JQzK9aX\n"
                               "    Device-Identifer-Version=1\n"
                               "    Device-Identifer-CodeSet[0]=2\n"
                               "    Device-Identifier-Type[0]=1\n"
                               "    Device-Identifier-Name[0]=ORVANE  LUN C4nB1JQzK9aX\n"
                               "    Device-Identifer-CodeSet[1]=1\n"
                               "    Device-Identifier-Type[1]=3\n"
                               // A NUL byte prints nothing.
                               "    Device-Identifier-Name[1]=\x01"
                               "AB\n"
                               "    Device-Identifer-CodeSet[2]=1\n"
                               "    Device-Identifier-Type[2]=0\n"
                               "    Interconnect-Type[0]=0\n"
                               "    Interconnect-Port[0]=iqn.1992-08.com.orvane:sn.4055\n"
                               "    Interconnect-Address[0]=192.0.2.15:3260\n"
                               "    Interconnect-Type[1]=5\n"
                               "    Interconnect-Port[1]=f1:/v1/lun1:snap\n"
                               "    Interconnect-Type[2]=2\n"
                               "    Interconnect-Address[2]=/v1/lun1-clone\n";

TEST_F(LunDumpTest, FullRecordAtLevelsThreeAndFourWithOrWithoutLabelNothingBelow)
{
    CLunRecord lun(FullRecord());
    ASSERT_TRUE(lun.Built());
    for (DWORD dwLevel : {0u, 1u, 2u, 3u, 4u}) {
        TraceSetLevel(dwLevel);
        DumpLunInformation(*lun, W("Source"));
        EXPECT_EQ(dwLevel < 3
                      ? ""
                      : "LUN Information [" + Address(&*lun) + "] (Source):\n" + kFullRecordBody,
                  TakeTraceText())
            << "level " << dwLevel;
    }
    DumpLunInformation(*lun);
    EXPECT_EQ("LUN Information [" + Address(&*lun) + "]:\n" + kFullRecordBody, TakeTraceText());
}

TEST_F(LunDumpTest, AnEmptyRecordPrintsMissingStringsAsEmpty)
{
    CLunRecord lun(CLunBuilder().Version(0));
    ASSERT_TRUE(lun.Built());
    DumpLunInformation(*lun, W("Destination"));
    EXPECT_EQ("LUN Information [" + Address(&*lun) +
                  "] (Destination):\n"
                  "    Version=0\n"
                  "    DiskSignature={00000000-0000-0000-0000-000000000000}\n"
                  "    DeviceType=0\n"
                  "    DeviceTypeMod=0\n"
                  "    CommandQueuing=0\n"
                  "    BusType=0\n"
                  "    VendorId=\n"
                  "    ProductId=\n"
                  "    ProductRevision=\n"
                  "    SerialNumber=\n"
                  "    Device-Identifer-Version=0\n",
              TakeTraceText());
}

TEST_F(LunDumpTest, BodyIsOneStepDeeperThanTheHeaderInsideAScope)
{
    CLunRecord lun(CLunBuilder().Version(7));
    ASSERT_TRUE(lun.Built());
    TraceW(W("start\n"));
    {
        CTraceScope scope(W("COrvaneHardwareProvider::GetTargetLuns"));
        DumpLunInformation(*lun);
    }
    TraceW(W("after\n"));
    std::string text = TakeTraceText();
    EXPECT_NE(std::string::npos,
              text.find("    LUN Information [" + Address(&*lun) + "]:\n        Version=7\n"))
        << text;
    EXPECT_NE(std::string::npos, text.find("        Device-Identifer-Version=0\nafter\n"))
        << "the indentation is back after the dump: " << text;
}

} // namespace
