// Shadow copies made by the simulated VSS through the installed provider, which COM starts in
// its own service process: the storage state, the inventory and the data of a persistent
// shadow copy, its deletion, the refusals VSS answers, and a failed commit that leaves nothing.
#include "host/vssregistration.h"
#include "sim/storage/storagesim.h"
#include "sim/vss/lunbuilder.h"
#include "sim/vss/lunencoding.h"
#include "sim/vss/vsssim.h"
#include "tests/pal/registry/registry_testing.h"
#include "tests/support/paltest.h"

#include "pal/objbase.h"
#include "pal/winsvc.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

constexpr LONG kPersistent =
    LONG{VSS_CTX_BACKUP} | VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE;

class ShadowCopyTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
        std::filesystem::path dir = MakeDir("Program Files/Orvane");
        std::filesystem::copy_file(ORVPROV_EXE, dir / "orvprov");
        orvtest::registry::ChildProcess install(
            {(dir / "orvprov").string(), "-r", "service", "-a", "LocalSystem"}, {});
        orvtest::registry::ProcessResult result = install.Wait();
        ASSERT_EQ(0, result.exitCode) << result.out << result.err;
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        m_hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
        m_hService = OpenServiceW(m_hManager, W("Orvhwsvc"), SERVICE_ALL_ACCESS);
        ASSERT_NE(nullptr, m_hService);
        ASSERT_HR(S_OK, storagesim::FindLunByDrive("E:\\", &m_filer, &m_lunPath));
    }
    void TearDown() override
    {
        SERVICE_STATUS status = {};
        if (m_hService && ControlService(m_hService, SERVICE_CONTROL_STOP, &status)) {
            EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
        }
        CloseServiceHandle(m_hService);
        CloseServiceHandle(m_hManager);
        CoUninitialize();
        PalTest::TearDown();
    }
    DWORD State()
    {
        SERVICE_STATUS status = {};
        return QueryServiceStatus(m_hService, &status) ? status.dwCurrentState : 0;
    }
    static storagesim::StateView Storage()
    {
        storagesim::StateView view;
        EXPECT_HR(S_OK, storagesim::ReadState(&view));
        return view;
    }
    static std::vector<vsssim::ShadowCopyInfo> Inventory()
    {
        std::vector<vsssim::ShadowCopyInfo> copies;
        EXPECT_HR(S_OK, vsssim::QueryShadowCopies(&copies));
        return copies;
    }
    // Nothing on the storage system or in the inventory beyond the machine's own LUNs.
    void ExpectNothingMade()
    {
        storagesim::StateView view = Storage();
        EXPECT_EQ(0u, view.snapshots.size());
        EXPECT_EQ(5u, view.luns.size());
        EXPECT_EQ(6u, view.disks.size());
        EXPECT_EQ(0u, Inventory().size());
    }

    SC_HANDLE m_hManager = nullptr;
    SC_HANDLE m_hService = nullptr;
    std::string m_filer, m_lunPath;
};

std::string SetName(const GUID& id)
{
    char sz[40];
    std::snprintf(sz, sizeof(sz), "{%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}",
                  static_cast<unsigned>(id.Data1), id.Data2, id.Data3, id.Data4[0], id.Data4[1],
                  id.Data4[2], id.Data4[3], id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return sz;
}

TEST_F(ShadowCopyTest, PersistentShadowCopyOfEThenItsDeletion)
{
    ASSERT_HR(S_OK, storagesim::WriteLunData(m_filer, m_lunPath, 0, "before"));
    VSS_ID setId = GUID_NULL;
    std::vector<VSS_ID> ids;
    ASSERT_HR(S_OK, vsssim::CreateShadowCopySet({u"e:"}, kPersistent, &setId, &ids));
    ASSERT_EQ(1u, ids.size());
    ASSERT_HR(S_OK, storagesim::WriteLunData(m_filer, m_lunPath, 0, "after!"));

    // The snapshot is named by the set; its target LUN exposes it and appeared as a disk.
    storagesim::StateView view = Storage();
    ASSERT_EQ(1u, view.snapshots.size());
    EXPECT_EQ(SetName(setId), view.snapshots[0].name);
    EXPECT_EQ(m_lunPath, view.snapshots[0].lunPath);
    const std::string target = view.snapshots[0].targetPath;
    ASSERT_EQ(7u, view.disks.size());
    EXPECT_EQ(target, view.disks[6].path);
    EXPECT_EQ(view.snapshots[0].targetSerial, view.disks[6].serial);
    std::string data;
    ASSERT_HR(S_OK, storagesim::ReadLunData(m_filer, target, 0, 6, &data));
    EXPECT_EQ("before", data);

    std::vector<vsssim::ShadowCopyInfo> copies = Inventory();
    ASSERT_EQ(1u, copies.size());
    const vsssim::ShadowCopyInfo& copy = copies[0];
    EXPECT_TRUE(IsEqualGUID(ids[0], copy.snapshotId));
    EXPECT_TRUE(IsEqualGUID(setId, copy.setId));
    EXPECT_TRUE(IsEqualGUID(PROVIDER_ID_OrvaneHardwareProvider, copy.providerId));
    EXPECT_EQ(kPersistent, copy.lContext);
    EXPECT_EQ(kPersistent | VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, copy.lAttributes);
    EXPECT_EQ(u"E:\\", copy.originalVolume);
    EXPECT_EQ(u"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1", copy.deviceName);
    EXPECT_EQ(u"\\\\.\\PhysicalDrive6", copy.diskName);
    EXPECT_EQ(u"", copy.exposedName);
    vsssim::CLunRecord source, targetLun;
    ASSERT_HR(S_OK, vsssim::DecodeLunInformation(copy.sourceLun, &source.Get()));
    ASSERT_HR(S_OK, vsssim::DecodeLunInformation(copy.targetLun, &targetLun.Get()));
    EXPECT_STREQ("HnLmC0DH4Rdx", source->m_szSerialNumber);
    EXPECT_EQ(view.snapshots[0].targetSerial, targetLun->m_szSerialNumber);
    ASSERT_EQ(1u, targetLun->m_cInterconnects);
    EXPECT_EQ(target, reinterpret_cast<char*>(targetLun->m_rgInterconnects[0].m_pbAddress));

    // Unloaded and released, the provider's service ends by itself.
    EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));

    ASSERT_HR(S_OK, vsssim::DeleteShadowCopy(ids[0]));
    view = Storage();
    EXPECT_EQ(6u, view.disks.size());
    for (const auto& lun : view.luns)
        EXPECT_NE(target, lun.path);
    EXPECT_EQ(0u, Inventory().size());
    EXPECT_HR(VSS_E_OBJECT_NOT_FOUND, vsssim::DeleteShadowCopy(ids[0]));
}

TEST_F(ShadowCopyTest, TransportableShadowCopyStaysOnTheStorageSystem)
{
    VSS_ID setId = GUID_NULL;
    std::vector<VSS_ID> ids;
    ASSERT_HR(S_OK, vsssim::CreateShadowCopySet(
                        {u"F:\\"}, kPersistent | VSS_VOLSNAP_ATTR_TRANSPORTABLE, &setId, &ids));
    storagesim::StateView view = Storage();
    ASSERT_EQ(1u, view.snapshots.size());
    EXPECT_EQ(SetName(setId), view.snapshots[0].name);
    EXPECT_EQ(6u, view.disks.size());
    std::vector<vsssim::ShadowCopyInfo> copies = Inventory();
    ASSERT_EQ(1u, copies.size());
    EXPECT_EQ(u"", copies[0].deviceName);
    EXPECT_EQ(u"", copies[0].diskName);
    EXPECT_EQ(u"F:\\", copies[0].originalVolume);
}

TEST_F(ShadowCopyTest, RefusalsLeaveNothing)
{
    struct
    {
        const char* pszWhy;
        std::vector<std::u16string> volumes;
        LONG lContext;
        HRESULT hr;
    } const kRows[] = {
        {"another vendor's disk", {u"K:\\"}, kPersistent, VSS_E_VOLUME_NOT_SUPPORTED},
        {"one of them another vendor's", {u"E:", u"K:"}, kPersistent, VSS_E_VOLUME_NOT_SUPPORTED},
        {"no such volume", {u"X:\\"}, kPersistent, VSS_E_OBJECT_NOT_FOUND},
        {"a volume twice", {u"E:", u"e:\\"}, kPersistent, VSS_E_OBJECT_ALREADY_EXISTS},
        {"no volume", {}, kPersistent, E_INVALIDARG},
        {"every context", {u"E:"}, VSS_CTX_ALL, E_INVALIDARG},
        {"65 volumes", std::vector<std::u16string>(65, u"E:"), kPersistent,
         VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.pszWhy);
        VSS_ID setId = {1, 0, 0, {0}};
        std::vector<VSS_ID> ids(1);
        EXPECT_HR(row.hr, vsssim::CreateShadowCopySet(row.volumes, row.lContext, &setId, &ids));
        EXPECT_TRUE(IsEqualGUID(GUID_NULL, setId));
        EXPECT_EQ(0u, ids.size());
        ExpectNothingMade();
    }
}

TEST_F(ShadowCopyTest, FailedCommitIsAbortedAndLeavesNothing)
{
    ASSERT_HR(S_OK, storagesim::SetFault("CreateSnapShot1", E_FAIL, 1));
    VSS_ID setId = GUID_NULL;
    std::vector<VSS_ID> ids;
    // The provider's commit answers its own code, which VSS does not know.
    EXPECT_HR(VSS_E_UNEXPECTED_PROVIDER_ERROR,
              vsssim::CreateShadowCopySet({u"E:", u"F:"}, kPersistent, &setId, &ids));
    ExpectNothingMade();
    EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
}

} // namespace
