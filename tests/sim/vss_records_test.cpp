// The LUN records the VSS simulation builds from the host's disks, and their form in the
// inventory read back field for field.
#include "sim/storage/storagesim.h"
#include "sim/vss/hostdisks.h"
#include "sim/vss/lunbuilder.h"
#include "sim/vss/lunencoding.h"
#include "tests/support/paltest.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using VssRecordsTest = orvtest::PalTest;

std::string Bytes(const BYTE* pb, ULONG cb)
{
    return std::string(reinterpret_cast<const char*>(pb), cb);
}

TEST_F(VssRecordsTest, DiskRecordsAsTheHostReportsThem)
{
    ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
    storagesim::StateView view;
    ASSERT_HR(S_OK, storagesim::ReadState(&view));
    struct
    {
        const char* pszVolume;
        const char* pszIdentity; // vendor, product, revision, serial
        VDS_STORAGE_BUS_TYPE busType;
        VDS_INTERCONNECT_ADDRESS_TYPE addressType;
        std::string port, address, identifier;
    } const kRows[] = {
        {"e:", "ORVANE LUN 9.1 HnLmC0DH4Rdx", VDSBusTypeiScsi, VDS_IA_UNKNOWN,
         std::string("iqn.1992-08.com.orvane:tgt.2.0", 31), std::string("192.0.2.2:3260", 15),
         "ORVANE  LUN HnLmC0DH4Rdx"},
        {"K:\\", "ACMEDISK FASTARRAY 2.10 AC00000000K1", VDSBusTypeFibre, VDS_IA_FCPH,
         std::string("\x50\x0a\x09\x80\x00\x00\x03\x02", 8),
         std::string("\x50\x0a\x09\x81\x00\x00\x03\x02", 8), "ACMEDISKFASTARRAY AC00000000K1"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.pszVolume);
        size_t iDisk = 0;
        ASSERT_TRUE(
            vsssim::FindVolumeDisk(view,
                                   vsssim::VolumeMountPoint(std::u16string(
                                       row.pszVolume, row.pszVolume + strlen(row.pszVolume))),
                                   &iDisk));
        vsssim::CLunRecord lun;
        ASSERT_HR(S_OK, vsssim::BuildDiskLunInformation(view.disks[iDisk], &lun.Get()));
        EXPECT_EQ(row.pszIdentity, std::string(lun->m_szVendorId) + " " + lun->m_szProductId + " " +
                                       lun->m_szProductRevision + " " + lun->m_szSerialNumber);
        EXPECT_EQ(row.busType, lun->m_BusType);
        ASSERT_EQ(1u, lun->m_deviceIdDescriptor.m_cIdentifiers);
        const VDS_STORAGE_IDENTIFIER& id = lun->m_deviceIdDescriptor.m_rgIdentifiers[0];
        EXPECT_EQ(VDSStorageIdCodeSetAscii, id.m_CodeSet);
        EXPECT_EQ(row.identifier, Bytes(id.m_rgbIdentifier, id.m_cbIdentifier));
        ASSERT_EQ(1u, lun->m_cInterconnects);
        const VDS_INTERCONNECT& ic = lun->m_rgInterconnects[0];
        EXPECT_EQ(row.addressType, ic.m_addressType);
        EXPECT_EQ(row.port, Bytes(ic.m_pbPort, ic.m_cbPort));
        EXPECT_EQ(row.address, Bytes(ic.m_pbAddress, ic.m_cbAddress));

        // Read back from the inventory's bytes, the record is the same; cut short, refused.
        const std::string bytes = vsssim::EncodeLunInformation(lun.Get());
        vsssim::CLunRecord copy;
        ASSERT_HR(S_OK, vsssim::DecodeLunInformation(bytes, &copy.Get()));
        EXPECT_EQ(bytes, vsssim::EncodeLunInformation(copy.Get()));
        vsssim::CLunRecord cut;
        EXPECT_HR(E_INVALIDARG,
                  vsssim::DecodeLunInformation(bytes.substr(0, bytes.size() - 1), &cut.Get()));
        EXPECT_EQ(nullptr, cut->m_szVendorId);
    }
    size_t iDisk = 0;
    EXPECT_FALSE(vsssim::FindVolumeDisk(view, "X:\\", &iDisk));
    EXPECT_EQ(u"\\\\.\\PhysicalDrive12", vsssim::DiskDeviceName(12));
}

} // namespace
