// Exposure of shadow copies made through the installed provider: the exposed drive reads the
// data of the commit while E: moves on and refuses writes, deletion takes the letter away, and
// the refusals of ExposeShadowCopy and UnexposeShadowCopy leave everything as it was.
#include "providermachine.h"

#include "sim/storage/simcodes.h"

namespace {

class ExposureTest : public orvtest::ShadowCopyMachineTest
{
protected:
    static std::string Read(const std::u16string& volume)
    {
        std::string data;
        EXPECT_HR(S_OK, vsssim::ReadVolumeData(volume, 0, 6, &data));
        return data;
    }
    static std::vector<std::string> MountPointsOfNewestDisk()
    {
        storagesim::StateView view;
        EXPECT_HR(S_OK, storagesim::ReadState(&view));
        return view.disks.back().mountPoints;
    }
};

TEST_F(ExposureTest, ExposedDriveReadsTheCommitWhileEMovesOn)
{
    ASSERT_HR(S_OK, vsssim::WriteVolumeData(u"E:", 0, "before"));
    VSS_ID setId = GUID_NULL;
    std::vector<VSS_ID> ids;
    ASSERT_HR(S_OK, vsssim::CreateShadowCopySet({u"E:"}, kPersistent, &setId, &ids));
    ASSERT_HR(S_OK, vsssim::WriteVolumeData(u"E:", 0, "after!"));

    std::u16string exposed;
    ASSERT_HR(S_OK, vsssim::ExposeShadowCopy(ids[0], u"x:\\", &exposed));
    EXPECT_EQ(u"X:", exposed);
    EXPECT_EQ(u"X:", Inventory()[0].exposedName);
    EXPECT_EQ(std::vector<std::string>{"X:\\"}, MountPointsOfNewestDisk());
    EXPECT_EQ("before", Read(u"X:"));
    EXPECT_EQ("after!", Read(u"E:"));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT), vsssim::WriteVolumeData(u"X:", 0, "x"));

    // Unexposed, the letter is free again; exposed anew, a deletion takes it away first.
    ASSERT_HR(S_OK, vsssim::UnexposeShadowCopy(ids[0]));
    EXPECT_EQ(u"", Inventory()[0].exposedName);
    EXPECT_TRUE(MountPointsOfNewestDisk().empty());
    ASSERT_HR(S_OK, vsssim::ExposeShadowCopy(ids[0], u"X:", &exposed));
    ASSERT_HR(S_OK, vsssim::DeleteShadowCopy(ids[0]));
    std::string data;
    EXPECT_HR(TESSERA_E_DRIVE_NOT_FOUND, vsssim::ReadVolumeData(u"X:", 0, 1, &data));
    EXPECT_TRUE(Inventory().empty());
}

TEST_F(ExposureTest, RefusalsLeaveEverythingAsItWas)
{
    VSS_ID setId = GUID_NULL;
    std::vector<VSS_ID> ids, transportable;
    ASSERT_HR(S_OK, vsssim::CreateShadowCopySet({u"E:", u"F:"}, kPersistent, &setId, &ids));
    ASSERT_HR(S_OK,
              vsssim::CreateShadowCopySet({u"I:"}, kPersistent | VSS_VOLSNAP_ATTR_TRANSPORTABLE,
                                          &setId, &transportable));
    std::u16string exposed;
    ASSERT_HR(S_OK, vsssim::ExposeShadowCopy(ids[0], u"X:", &exposed));
    const VSS_ID unknown = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};

    struct Case
    {
        const char* what;
        VSS_ID id;
        const char16_t* name;
        HRESULT hr;
    } cases[] = {
        {"unknown id", unknown, u"Y:", VSS_E_OBJECT_NOT_FOUND},
        {"already exposed", ids[0], u"Y:", VSS_E_OBJECT_ALREADY_EXISTS},
        {"letter of another exposed copy", ids[1], u"x:", VSS_E_OBJECT_ALREADY_EXISTS},
        {"letter of a volume", ids[1], u"E:\\", VSS_E_OBJECT_ALREADY_EXISTS},
        {"not surfaced on this host", transportable[0], u"Y:", VSS_E_BAD_STATE},
        {"mounted folder", ids[1], u"C:\\mnt\\x", E_INVALIDARG},
        {"no letter", ids[1], u"1:", E_INVALIDARG},
        {"empty name", ids[1], u"", E_INVALIDARG},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        exposed = u"stale";
        EXPECT_HR(c.hr, vsssim::ExposeShadowCopy(c.id, c.name, &exposed));
        EXPECT_EQ(u"", exposed);
    }
    EXPECT_HR(E_INVALIDARG, vsssim::ExposeShadowCopy(ids[1], u"Y:", nullptr));
    EXPECT_HR(VSS_E_OBJECT_NOT_FOUND, vsssim::UnexposeShadowCopy(ids[1]));
    EXPECT_HR(VSS_E_OBJECT_NOT_FOUND, vsssim::UnexposeShadowCopy(unknown));

    std::vector<vsssim::ShadowCopyInfo> copies = Inventory();
    ASSERT_EQ(3u, copies.size());
    EXPECT_EQ(u"X:", copies[0].exposedName);
    EXPECT_EQ(u"", copies[1].exposedName);
    EXPECT_EQ(u"", copies[2].exposedName);
    storagesim::StateView view;
    ASSERT_HR(S_OK, storagesim::ReadState(&view));
    size_t cMounted = 0;
    for (const auto& disk : view.disks)
        cMounted += disk.mountPoints.size();
    EXPECT_EQ(8u, cMounted); // the machine's seven and X:
    for (const VSS_ID& id : ids)
        EXPECT_HR(S_OK, vsssim::DeleteShadowCopy(id));
}

} // namespace
