// Shadow copies made by the simulated VSS through the installed provider, which COM starts in
// its own service process: the storage state, the inventory and the data of a persistent
// shadow copy, its deletion, the refusals VSS answers, a failed commit that leaves nothing, a
// set over two filers, the import of a transportable set, recovered sets, a fault at each
// point of the sequence and VSS's process ending in the middle of a set.
#include "host/vssregistration.h"
#include "providermachine.h"
#include "sim/storage/storagesim.h"
#include "sim/vss/lunbuilder.h"
#include "sim/vss/lunencoding.h"
#include "sim/vss/vsssim.h"
#include "tests/pal/registry/registry_testing.h"

#include "pal/objbase.h"
#include "pal/palcontrol.h"
#include "pal/paleventlog.h"
#include "pal/regkey.h"
#include "pal/winsvc.h"
#include "res/orvmsg.h"

#include <gtest/gtest.h>

namespace {

class ShadowCopyTest : public orvtest::ShadowCopyMachineTest
{
protected:
    void SetUp() override
    {
        ShadowCopyMachineTest::SetUp();
        ASSERT_HR(S_OK, storagesim::FindLunByDrive("E:\\", &m_filer, &m_lunPath));
    }
    static storagesim::StateView Storage()
    {
        storagesim::StateView view;
        EXPECT_HR(S_OK, storagesim::ReadState(&view));
        return view;
    }
    // The provider's events since the last call, by id, without its service's and its load's.
    std::vector<DWORD> NewEvents()
    {
        std::vector<pal::EventLogRecord> records;
        EXPECT_EQ(DWORD(ERROR_SUCCESS), pal::ReadEventLog({}, &records));
        std::vector<DWORD> ids;
        for (size_t i = m_cEventsSeen; i < records.size(); ++i)
            if (records[i].dwEventId != ORVPROV_EVENT_SERVICE_STARTED &&
                records[i].dwEventId != ORVPROV_EVENT_SERVICE_STOPPED &&
                records[i].dwEventId != ORVPROV_EVENT_PROVIDER_LOADED &&
                records[i].dwEventId != ORVPROV_EVENT_PROVIDER_UNLOADED)
                ids.push_back(records[i].dwEventId);
        m_cEventsSeen = records.size();
        return ids;
    }
    std::string LunData(const std::string& path, DWORD dwOffset, DWORD cb)
    {
        std::string data;
        EXPECT_HR(S_OK, storagesim::ReadLunData(m_filer, path, dwOffset, cb, &data));
        return data;
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

    size_t m_cEventsSeen = 0;
    std::string m_filer, m_lunPath;
};

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
    EXPECT_EQ(vsssim::GuidText(setId), view.snapshots[0].name);
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

TEST_F(ShadowCopyTest, TransportableSetImportedOnTheSameHost)
{
    ASSERT_HR(S_OK, storagesim::WriteLunData(m_filer, m_lunPath, 0, "at the cut"));
    VSS_ID setId = GUID_NULL, importedId = GUID_NULL;
    std::vector<VSS_ID> ids;
    std::string document;
    ASSERT_HR(S_OK,
              vsssim::CreateShadowCopySet({u"E:\\"}, kPersistent | VSS_VOLSNAP_ATTR_TRANSPORTABLE,
                                          &setId, &ids, &document));
    // Not surfaced here: the snapshot stays on the filer, the document describes it.
    ASSERT_EQ(1u, Storage().snapshots.size());
    EXPECT_EQ(6u, Storage().disks.size());
    ASSERT_EQ(u"", Inventory()[0].deviceName);
    EXPECT_NE(std::string::npos,
              document.find("snapshotSetId=\"" + vsssim::GuidText(setId) + "\""));
    EXPECT_NE(std::string::npos, document.find("snapshotId=\"" + vsssim::GuidText(ids[0]) + "\""));
    ASSERT_HR(S_OK, storagesim::WriteLunData(m_filer, m_lunPath, 0, "afterwards"));

    ASSERT_HR(S_OK, vsssim::ImportShadowCopySet(document, &importedId));
    EXPECT_TRUE(IsEqualGUID(setId, importedId));
    storagesim::StateView view = Storage();
    ASSERT_EQ(7u, view.disks.size());
    EXPECT_EQ(view.snapshots[0].targetSerial, view.disks[6].serial);
    EXPECT_EQ("at the cut", LunData(view.disks[6].path, 0, 10));
    std::vector<vsssim::ShadowCopyInfo> copies = Inventory();
    ASSERT_EQ(1u, copies.size());
    EXPECT_TRUE(IsEqualGUID(ids[0], copies[0].snapshotId));
    EXPECT_EQ(u"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy2", copies[0].deviceName);
    EXPECT_EQ(u"\\\\.\\PhysicalDrive6", copies[0].diskName);
    EXPECT_EQ(kPersistent | VSS_VOLSNAP_ATTR_TRANSPORTABLE | VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED |
                  VSS_VOLSNAP_ATTR_IMPORTED,
              copies[0].lAttributes);
    EXPECT_HR(VSS_E_OBJECT_ALREADY_EXISTS, vsssim::ImportShadowCopySet(document, &importedId));
    EXPECT_HR(VSS_E_INVALID_XML_DOCUMENT, vsssim::ImportShadowCopySet("<x/>", &importedId));
    EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
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

TEST_F(ShadowCopyTest, OneSetOverTwoFilers)
{
    std::string filer2, lun2;
    ASSERT_HR(S_OK, storagesim::FindLunByDrive("I:\\", &filer2, &lun2));
    ASSERT_HR(S_OK, storagesim::WriteLunData(m_filer, m_lunPath, 0, "E at the cut"));
    ASSERT_HR(S_OK, storagesim::WriteLunData(filer2, lun2, 0, "I at the cut"));
    VSS_ID setId = GUID_NULL;
    std::vector<VSS_ID> ids;
    ASSERT_HR(S_OK, vsssim::CreateShadowCopySet({u"E:", u"I:"}, kPersistent, &setId, &ids));
    storagesim::StateView view = Storage();
    ASSERT_EQ(2u, view.snapshots.size());
    ASSERT_EQ(8u, view.disks.size());
    for (size_t i = 0; i < 2; ++i) {
        const storagesim::SnapshotInfo& snapshot = view.snapshots[i];
        EXPECT_EQ(vsssim::GuidText(setId), snapshot.name);
        std::string data;
        ASSERT_HR(S_OK, storagesim::ReadLunData(snapshot.filer, snapshot.targetPath, 0, 12, &data));
        EXPECT_EQ(snapshot.filer == m_filer ? "E at the cut" : "I at the cut", data);
    }
    EXPECT_NE(view.snapshots[0].filer, view.snapshots[1].filer);
    std::vector<vsssim::ShadowCopyInfo> copies = Inventory();
    ASSERT_EQ(2u, copies.size());
    EXPECT_EQ(u"E:\\", copies[0].originalVolume);
    EXPECT_EQ(u"I:\\", copies[1].originalVolume);
    EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
}

TEST_F(ShadowCopyTest, RecoveredTransportableSets)
{
    constexpr LONG kTransportable = kPersistent | VSS_VOLSNAP_ATTR_TRANSPORTABLE;
    struct
    {
        const char* pszVolume;
        LONG lAttribute;
        DWORD dwEnableTxf;
        HRESULT hr;
    } const kRows[] = {
        {"E:", VSS_VOLSNAP_ATTR_AUTORECOVER, 0, S_OK},
        {"E:", VSS_VOLSNAP_ATTR_TXF_RECOVERY, 1, S_OK},
        {"E:", VSS_VOLSNAP_ATTR_TXF_RECOVERY, 0, S_OK},
        // verdane02: neither unlocked clones nor backup snapshots.
        {"I:", VSS_VOLSNAP_ATTR_AUTORECOVER, 0, VSS_E_VOLUME_NOT_SUPPORTED},
        {"I:", VSS_VOLSNAP_ATTR_TXF_RECOVERY, 1, S_OK},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(std::string(row.pszVolume) + " " + std::to_string(row.lAttribute) + " " +
                     std::to_string(row.dwEnableTxf));
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
        CRegKey key;
        ASSERT_EQ(ERROR_SUCCESS,
                  key.Create(HKEY_LOCAL_MACHINE,
                             W("System\\CurrentControlSet\\Services\\Orvhwsvc\\Parameters")));
        ASSERT_EQ(ERROR_SUCCESS, key.SetDWORDValue(W("EnableTxfRecovery"), row.dwEnableTxf));
        std::string filer, lun;
        ASSERT_HR(S_OK,
                  storagesim::FindLunByDrive(std::string(row.pszVolume) + "\\", &filer, &lun));
        ASSERT_HR(S_OK, storagesim::WriteLunData(filer, lun, 0, "at the cut"));
        std::u16string volume(row.pszVolume, row.pszVolume + 2);
        VSS_ID setId = GUID_NULL;
        std::vector<VSS_ID> ids;
        std::string document;
        EXPECT_HR(row.hr, vsssim::CreateShadowCopySet({volume}, kTransportable | row.lAttribute,
                                                      &setId, &ids, &document));
        EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
        storagesim::StateView view = Storage();
        EXPECT_EQ(6u, view.disks.size()); // masked after the final commit
        EXPECT_EQ(5u, view.luns.size());
        if (FAILED(row.hr)) {
            EXPECT_EQ(0u, view.snapshots.size());
            continue;
        }
        // The provider masks by deleting the recovered target LUN, and the "<set>_backup"
        // snapshot it made of it at the final commit goes with it: the set's snapshot is all
        // that stays, and the import surfaces the data of the cut without the recovery's bytes.
        ASSERT_EQ(1u, view.snapshots.size());
        EXPECT_EQ(vsssim::GuidText(setId), view.snapshots[0].name);
        ASSERT_HR(S_OK, vsssim::ImportShadowCopySet(document, &setId));
        const std::string target = Storage().disks[6].path;
        std::string data;
        ASSERT_HR(S_OK, storagesim::ReadLunData(filer, target, 0, 10, &data));
        EXPECT_EQ("at the cut", data);
        ASSERT_HR(S_OK, storagesim::ReadLunData(filer, target, 4096, 12, &data));
        EXPECT_EQ(std::string(12, '\0'), data);
        EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
    }
}

TEST_F(ShadowCopyTest, FaultAtEachPointIsAbortedAndLeavesNothing)
{
    constexpr DWORD S = ORVPROV_EVENT_SOURCE_LUN_ADDED, C = ORVPROV_EVENT_COMMIT_COMPLETED,
                    M = ORVPROV_EVENT_LUN_MAPPED, A = ORVPROV_EVENT_ABORT_CALLED,
                    D = ORVPROV_EVENT_LUN_DELETED;
    struct
    {
        const char* pszRule;
        HRESULT hrRule;
        HRESULT hr;                // what the requester sees
        std::vector<DWORD> events; // between the provider's load and unload
    } const kRows[] = {
        {"Call:AreLunsSupported", RPC_E_DISCONNECTED, VSS_E_VOLUME_NOT_SUPPORTED, {}},
        {"Call:BeginPrepareSnapshot", RPC_E_DISCONNECTED, VSS_E_UNEXPECTED_PROVIDER_ERROR, {A}},
        {"Writer:PrepareForSnapshot",
         VSS_E_WRITERERROR_RETRYABLE,
         VSS_E_WRITERERROR_RETRYABLE,
         {S, A}},
        {"Call:EndPrepareSnapshots", VSS_E_PROVIDER_VETO, VSS_E_PROVIDER_VETO, {S, A}},
        {"Writer:Freeze", VSS_E_WRITERERROR_NONRETRYABLE, VSS_E_WRITERERROR_NONRETRYABLE, {S, A}},
        {"Call:CommitSnapshots", RPC_E_SERVERFAULT, VSS_E_UNEXPECTED_PROVIDER_ERROR, {S, A}},
        {"HoldWrites", VSS_E_HOLD_WRITES_TIMEOUT, VSS_E_HOLD_WRITES_TIMEOUT, {S, A}},
        {"Writer:Thaw", VSS_E_WRITERERROR_TIMEOUT, VSS_E_WRITERERROR_TIMEOUT, {S, C, A}},
        {"Call:GetTargetLuns", E_OUTOFMEMORY, E_OUTOFMEMORY, {S, C, A}},
        {"Call:LocateLuns", RPC_E_DISCONNECTED, VSS_E_UNEXPECTED_PROVIDER_ERROR, {S, C, A}},
        {"Call:FillInLunInfo", RPC_E_DISCONNECTED, VSS_E_UNEXPECTED_PROVIDER_ERROR, {S, C, M, A}},
        {"Call:PostFinalCommitSnapshots",
         RPC_E_DISCONNECTED,
         VSS_E_UNEXPECTED_PROVIDER_ERROR,
         {S, C, M, A, D}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.pszRule);
        NewEvents();
        ASSERT_HR(S_OK, vsssim::SetFault(row.pszRule, row.hrRule, 1));
        VSS_ID setId = GUID_NULL;
        std::vector<VSS_ID> ids;
        EXPECT_HR(row.hr, vsssim::CreateShadowCopySet({u"E:"}, kPersistent, &setId, &ids));
        EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
        ExpectNothingMade();
        EXPECT_EQ(row.events, NewEvents());
    }
}

TEST_F(ShadowCopyTest, CommitSlowerThanTenSecondsOnThePlatformClock)
{
    // The service's clock runs as fast as the test's: the cut's 11 s pass in 0.55 s.
    setenv("ORVSIM_CLOCK_SCALE", "20", 1);
    pal::SetClockScale(20);
    ASSERT_HR(S_OK, storagesim::SetDelay("Finish_CreateSnapShot1", 11000, 1));
    VSS_ID setId = GUID_NULL;
    std::vector<VSS_ID> ids;
    EXPECT_HR(VSS_E_HOLD_WRITES_TIMEOUT,
              vsssim::CreateShadowCopySet({u"E:"}, kPersistent, &setId, &ids));
    EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
    unsetenv("ORVSIM_CLOCK_SCALE");
    ExpectNothingMade();
    // The provider saw its commit take 11 s and says so.
    EXPECT_EQ((std::vector<DWORD>{ORVPROV_EVENT_SOURCE_LUN_ADDED, ORVPROV_EVENT_COMMIT_SLOW,
                                  ORVPROV_EVENT_ABORT_CALLED}),
              NewEvents());
}

TEST_F(ShadowCopyTest, VssEndingInTheMiddleOfASet)
{
    constexpr DWORD S = ORVPROV_EVENT_SOURCE_LUN_ADDED, C = ORVPROV_EVENT_COMMIT_COMPLETED,
                    M = ORVPROV_EVENT_LUN_MAPPED;
    // Nothing aborts the set: what the provider made before VSS ended stays on the filer.
    struct
    {
        const char* pszPoint;
        size_t cSnapshots, cLuns, cDisks;
        std::vector<DWORD> events;
    } const kRows[] = {
        {"EndPrepareSnapshots", 0, 5, 6, {S}},
        {"Writer:Thaw", 1, 5, 6, {S, C}},
        {"PostFinalCommitSnapshots", 1, 6, 7, {S, C, M}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.pszPoint);
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
        ASSERT_HR(S_OK, vsssim::SetFault(std::string("Kill:") + row.pszPoint, 3, 1));
        orvtest::registry::ChildProcess vss({ORVSIM_EXE, "vss", "create", "E:"}, {});
        EXPECT_EQ(3, vss.Wait().exitCode);
        // COM's rundown releases what VSS held: the service stops by itself.
        EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
        storagesim::StateView view = Storage();
        EXPECT_EQ(row.cSnapshots, view.snapshots.size());
        EXPECT_EQ(row.cLuns, view.luns.size());
        EXPECT_EQ(row.cDisks, view.disks.size());
        EXPECT_EQ(row.events, NewEvents());
        EXPECT_EQ(0u, Inventory().size());
    }
}

} // namespace
