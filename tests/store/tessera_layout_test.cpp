// The storage service's ids, progress codes and record layouts, as the service publishes them.
#include "store/tessera.h"
#include "tests/support/paltest.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Text(REFGUID guid)
{
    WCHAR sz[39];
    StringFromGUID2(guid, sz, 39);
    return orvtest::Narrow(sz);
}

TEST(TesseraIds, ClassAndInterfaceIdsAreTheServices)
{
    EXPECT_EQ("{B9F2082F-933B-4BAF-BF03-9C9E74D454B6}", Text(CLSID_VSSSupport));
    EXPECT_EQ("{2CDC738A-B3CA-4022-B7C9-A112710D9FA6}", Text(CLSID_HyperVSupport));
    EXPECT_EQ("{E2AE21F8-46C4-4615-B5A6-ED1F81ADD5EB}", Text(IID_IVSSSupport));
    EXPECT_EQ("{EE562C58-79E4-4CF3-A58B-E2594EEC2B5E}", Text(IID_AsyncIVSSSupport));
    EXPECT_EQ("{A17DB9DE-94EF-49D6-85D2-F9507718F975}", Text(IID_ISnapShot));
    EXPECT_EQ("{AA640497-DC53-4565-B990-36B1D734080E}", Text(IID_IHyperVSupport));
    EXPECT_EQ("{2CA9F25C-47B5-4DD5-9436-1EE77FE9EE8E}", Text(IID__ISnapShotEvents));
}

TEST(TesseraIds, InterfacesAreNamedByTheirIds)
{
    EXPECT_TRUE(IsEqualIID(IID_IVSSSupport, __uuidof(IVSSSupport)));
    EXPECT_TRUE(IsEqualIID(IID_AsyncIVSSSupport, __uuidof(AsyncIVSSSupport)));
    EXPECT_TRUE(IsEqualIID(IID_ISnapShot, __uuidof(ISnapShot)));
    EXPECT_TRUE(IsEqualIID(IID_IHyperVSupport, __uuidof(IHyperVSupport)));
    EXPECT_TRUE(IsEqualIID(IID__ISnapShotEvents, __uuidof(_ISnapShotEvents)));
}

TEST(TesseraCodes, ProgressCodesAndBackupRefusal)
{
    EXPECT_EQ(1, PROG_POLICY_CHECK);
    EXPECT_EQ(20, PROG_KVX_SNAPCREATE);
    EXPECT_EQ(29, PROG_KVX_SNAP_PREPARE);
    EXPECT_EQ(43, PROG_HANDOFF);
    EXPECT_EQ(0xC0040460u, DWORD(TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED));
    EXPECT_TRUE(FAILED(TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED));
}

// The layouts are asserted where they are declared; these checks repeat them where a reader of
// the tests looks, field by field in table form.
struct FieldCase
{
    const char* name;
    size_t offset;
    size_t expected;
};

class TesseraLayout : public ::testing::TestWithParam<FieldCase>
{};

TEST_P(TesseraLayout, FieldIsAtItsPublishedOffset)
{
    EXPECT_EQ(GetParam().expected, GetParam().offset) << GetParam().name;
}

#define FIELD(type, field, at)                                                                     \
    FieldCase                                                                                      \
    {                                                                                              \
#type "." #field, offsetof(type, field), at                                                \
    }
#define SIZE(type, bytes)                                                                          \
    FieldCase                                                                                      \
    {                                                                                              \
        "sizeof " #type, sizeof(type), bytes                                                       \
    }

INSTANTIATE_TEST_SUITE_P(
    Records, TesseraLayout,
    ::testing::Values(
        SIZE(LUN_LOCATION, 16), FIELD(LUN_LOCATION, filerName, 0), FIELD(LUN_LOCATION, lunPath, 8),
        SIZE(TARGET_LUN_INFO, 48), FIELD(TARGET_LUN_INFO, lunLocation, 0),
        FIELD(TARGET_LUN_INFO, serialNumber, 16), FIELD(TARGET_LUN_INFO, vendorId, 24),
        FIELD(TARGET_LUN_INFO, productId, 32), FIELD(TARGET_LUN_INFO, productRevision, 40),
        SIZE(DRIVE_LIST, 16), FIELD(DRIVE_LIST, Flag1, 0), FIELD(DRIVE_LIST, Flag2, 1),
        FIELD(DRIVE_LIST, Count, 4), FIELD(DRIVE_LIST, Drives, 8), SIZE(DRIVE_ENTRY, 16),
        FIELD(DRIVE_ENTRY, Drive, 0), FIELD(DRIVE_ENTRY, Reserved, 8), SIZE(LC_PAIR_ARRAY, 16),
        FIELD(LC_PAIR_ARRAY, Count, 0), FIELD(LC_PAIR_ARRAY, Pairs, 8), SIZE(LC_PAIR, 40),
        FIELD(LC_PAIR, Filer, 0), FIELD(LC_PAIR, LunPath, 8), FIELD(LC_PAIR, Clone, 16),
        FIELD(LC_PAIR, Device, 24), FIELD(LC_PAIR, eSnapshotAttr, 32), SIZE(VD_INFO, 160),
        FIELD(VD_INFO, ExtraDword1, 0), FIELD(VD_INFO, ExtraString1, 8), FIELD(VD_INFO, Filer, 16),
        FIELD(VD_INFO, FilerPath, 24), FIELD(VD_INFO, ExtraString2, 32),
        FIELD(VD_INFO, SerialNumber, 40), FIELD(VD_INFO, BackedBySnapshot, 56),
        FIELD(VD_INFO, ExtraFlag1, 57), FIELD(VD_INFO, SnapshotName, 64),
        FIELD(VD_INFO, Shared, 72), FIELD(VD_INFO, ExtraFlag2, 73), FIELD(VD_INFO, ExtraByte1, 75),
        FIELD(VD_INFO, ExtraByte2, 76), FIELD(VD_INFO, SCSIPort, 77), FIELD(VD_INFO, Bus, 78),
        FIELD(VD_INFO, Target, 79), FIELD(VD_INFO, LUN, 80), FIELD(VD_INFO, Readonly, 81),
        FIELD(VD_INFO, Size, 88), FIELD(VD_INFO, ExtraDword2, 96), FIELD(VD_INFO, ExtraDword3, 100),
        FIELD(VD_INFO, MountPointCount, 104), FIELD(VD_INFO, MountPoint, 112),
        FIELD(VD_INFO, ExtraDword4, 136), SIZE(VD_INFO_LIST, 16), FIELD(VD_INFO_LIST, Count, 0),
        FIELD(VD_INFO_LIST, Disks, 8)),
    [](const auto& info) {
        std::string name;
        for (const char* p = info.param.name; *p; ++p)
            name += (*p == '.' || *p == ' ') ? '_' : *p;
        return name;
    });

TEST(TesseraLayout, FieldSizesAreThePublishedOnes)
{
    VD_INFO disk{};
    EXPECT_EQ(1u, sizeof(disk.BackedBySnapshot));
    EXPECT_EQ(1u, sizeof(disk.Readonly));
    EXPECT_EQ(8u, sizeof(disk.Size));
    EXPECT_EQ(4u, sizeof(disk.MountPointCount));
    EXPECT_EQ(8u, sizeof(disk.Reserved1));
    EXPECT_EQ(16u, sizeof(disk.Reserved3));
    EXPECT_EQ(20u, sizeof(disk.Reserved4));
    DRIVE_LIST list{};
    EXPECT_EQ(1u, sizeof(list.Flag1));
    EXPECT_EQ(4u, sizeof(list.Count));
}

} // namespace
