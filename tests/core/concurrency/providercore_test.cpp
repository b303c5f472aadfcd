// The provider core driven through the real store against the simulated storage service, each
// table row on a fresh machine: a set on data, every failure and the state it leaves, recovery
// to a backup snapshot, an allocation sweep, and the mapped LUNs read by another process.
#include "core/providercore.h"
#include "diag/config.h"
#include "diag/trace.h"
#include "res/orvmsg.h"
#include "sim/storage/storagesim.h"
#include "store/tesserastore.h"
#include "store/vdcache.h"
#include "tests/core/support/recordtext.h"
#include "tests/pal/registry/registry_testing.h"
#include "tests/support/lunbuilder.h"
#include "tests/support/tracetext.h"

#include "pal/combaseapi.h"
#include "pal/interlockedapi.h"
#include "pal/regkey.h"
#include "pal/vss.h"
#include "pal/winuser.h"

#include <memory>
#include <optional>

namespace {

using namespace orvtest;

constexpr GUID kSet = {0x5e7a11d0, 0x1111, 0x4a4a, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr GUID kOther = {0x5e7a11d0, 0x2222, 0x4a4a, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr LPCWSTR kLunE = W("HnLmC0DH4Rdx"); // verdane01:/vol/vol1/lun1
constexpr LPCWSTR kLunF = W("HnLmC0DH4Rdy"); // verdane01:/vol/vol1/lun2
constexpr LPCWSTR kLunI = W("Q7vTk2Pw9sLa"); // verdane02 (no backup snapshots):/vol/vol1/lun1
#define LUN_IDENTITY W("ORVANE"), W("LUN"), W("9.1")

enum class Op
{
    kAdd,
    kSupported,
    kUnlocked,
    kPrepare,
    kCommit,
    kFind,
    kBuild,
    kMap,
    kVerify,
    kDelete,
    kFlags,
    kBackup
};
// With kAdd, kPrepare and kCommit: the call names the other set.
constexpr DWORD kOtherSet = 0x80000000;

class ProviderCoreTest : public PalTest
{
public:
    void SetUp() override
    {
        PalTest::SetUp();
        CConfig::ResetForTest();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_HR(S_OK, m_service.Start());
        m_core = std::make_unique<CProviderCore>();
        ASSERT_HR(S_OK, m_core->Initialize());
        TraceSetLevel(TRACE_LEVEL_INFO);
    }
    void TearDown() override
    {
        // As VSS does before it lets a provider go: a set held at its cut holds the service.
        m_core->AbortSnapshots(&kSet);
        m_core.reset();
        m_lun.reset();
        EXPECT_TRUE(WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
        SetVDCacheFalse(); // kept for the whole process, and the next machine is another
        m_service.Stop();
        CoUninitialize();
        PalTest::TearDown();
    }
    // A new machine with a set of one LUN: 0 added, 1 prepared, 2 committed, 3 its target
    // known, 4 its target mapped.
    void Start(int phase, LONG eAttr = 0, LPCWSTR pszSerialNo = kLunE)
    {
        TearDown();
        SetUp();
        HRESULT hr = Act(Op::kAdd, pszSerialNo, eAttr);
        for (Op op : {Op::kPrepare, Op::kCommit, Op::kBuild, Op::kMap})
            hr = SUCCEEDED(hr) && phase-- > 0 ? Act(op) : hr;
        ASSERT_HR(S_OK, hr);
        TakeTraceText();
    }
    // One operation on the first entry or the LUN `arg`; n is the attribute (kAdd) and
    // kOtherSet, or the flags (kFlags, whose arg "2" passes the LUN twice and "bad" a LUN with
    // a malformed Path2).
    HRESULT Act(Op op, LPCWSTR arg = nullptr, DWORD n = 0)
    {
        const GUID* pSet = n & kOtherSet ? &kOther : &kSet;
        const CSnapshotEntry* e = Entry(0);
        LONG fSupported = 0;
        BOOLEAN fUnlocked = FALSE;
        CSnapshotEntry entry;
        CTargetLunInfo info;
        switch (op) {
        case Op::kAdd: {
            if (!(n & kOtherSet))
                m_core->SetSnapshotSetId(pSet);
            WCHAR szDevice[32];
            wsprintfW(szDevice, W("\\\\.\\PhysicalDrive%d"), m_core->Snapshots().GetCount());
            return m_core->AddSnapshot(pSet, pSet, LUN_IDENTITY, arg, szDevice, n & ~kOtherSet);
        }
        case Op::kSupported:
            return m_core->IsSourceLunSupported(LUN_IDENTITY, arg, &fSupported, &fUnlocked);
        case Op::kUnlocked:
            return m_core->IsUnlockedCloneSupported(arg, &fUnlocked);
        case Op::kPrepare:
            return m_core->EndPrepareSnapshots(pSet);
        case Op::kCommit:
            return m_core->CommitSnapshots(pSet);
        case Op::kFind:
            return m_core->FindSnapshotBySourceLun(LUN_IDENTITY, arg, &entry);
        case Op::kBuild:
            return m_core->BuildTargetLunsInfo();
        case Op::kMap:
            for (DWORD i = 0; i < m_core->Snapshots().GetCount(); ++i, e = Entry(i)) {
                HRESULT hr =
                    m_core->MapTargetLun(LUN_IDENTITY, e->TargetLunSerialNo(), e->TargetLunPath(),
                                         arg ? arg : e->TargetLunPath2(), W("UNKNOWN"));
                if (FAILED(hr))
                    return hr;
            }
            return S_OK;
        case Op::kVerify:
            return m_core->VerifyMappedTargetLun(LUN_IDENTITY, arg ? arg : e->TargetLunSerialNo(),
                                                 &info);
        case Op::kDelete:
            return m_core->DeleteTargetLun(e->TargetLunPath(), arg ? arg : e->TargetLunPath2(),
                                           e->TargetLunSerialNo());
        case Op::kFlags: {
            std::optional<CLunRecord> bad;
            if (arg && *arg == W('b'))
                bad.emplace(CLunBuilder()
                                .VendorId("ORVANE")
                                .ProductId("LUN")
                                .ProductRevision("9.1")
                                .SerialNumber("x")
                                .AddScsiInterconnect("/t", "no-colons"));
            VDS_LUN_INFORMATION luns[] = {bad ? bad->Get() : *FirstTargetLun(), *FirstTargetLun()};
            return m_core->OnLunStateChange(luns, nullptr, arg && *arg == W('2') ? 2 : 1, n);
        }
        case Op::kBackup:
            return m_core->PrepareBackupSnapshot(pSet);
        }
        return E_UNEXPECTED;
    }
    const CSnapshotEntry* Entry(DWORD n)
    {
        auto& list = m_core->Snapshots();
        for (list.MoveFirst(); n-- > 0 && list.HasCurrent();)
            list.MoveNext();
        return list.Current();
    }
    // The n-th entry's target LUN as the host reports it once mapped.
    CLunBuilder TargetLun(DWORD n, const char* pszVendorId = "ORVANE")
    {
        const CSnapshotEntry* e = Entry(n);
        return CLunBuilder()
            .VendorId(pszVendorId)
            .ProductId("LUN")
            .ProductRevision("9.1")
            .SerialNumber(FieldText(e->TargetLunSerialNo()).c_str())
            .AddScsiInterconnect(FieldText(e->TargetLunPath()), FieldText(e->TargetLunPath2()));
    }
    // Built once a machine, so that what VSS passes costs the operations no allocation.
    VDS_LUN_INFORMATION* FirstTargetLun()
    {
        if (!m_lun)
            m_lun = std::make_unique<CLunRecord>(TargetLun(0));
        return &m_lun->Get();
    }
    // The set, its lists and map, and the registry's records of mapped LUNs, a line each.
    std::string StateText()
    {
        const GUID& id = m_core->SnapshotSetId();
        std::string text = "set " + std::to_string(id.Data2) + " recovery " +
                           std::to_string(m_core->IsRecoveryEnabled()) + "\n";
        auto join = [](const std::vector<LPCWSTR>& fields) {
            std::string line;
            for (const std::string& field : FieldTexts(fields))
                line += " " + field;
            return line + "\n";
        };
        for (auto* list : {&m_core->Snapshots(), &m_core->BackupSnapshots()})
            for (list->MoveFirst(); list->HasCurrent(); list->MoveNext())
                text += std::to_string(list->Current()->SnapshotAttr()) +
                        join(StringFields(*list->Current()));
        auto& pairs = m_core->LCPairs();
        for (pairs.MoveFirst(); pairs.HasCurrent(); pairs.MoveNext())
            text += "pair" + join({pairs.Current()->Filer(), pairs.Current()->LunPath(),
                                   pairs.Current()->Clone(), pairs.Current()->Device()});
        auto& map = m_core->TargetLunMap();
        for (map.MoveFirst(); map.HasCurrent(); map.MoveNext())
            text += "map" + join(StringFields(*map.Current()));
        CRegKey key;
        WCHAR szName[256];
        DWORD cch = 256;
        for (DWORD i = 0;
             key.Open(HKEY_LOCAL_MACHINE, ORV_MAPPED_TARGET_LUNS_KEY, KEY_READ) == 0 &&
             RegEnumKeyExW(key, i, szName, &cch, nullptr, nullptr, nullptr, nullptr) == 0;
             ++i, cch = 256)
            text += "record " + FieldText(szName) + "\n";
        return text;
    }
    static std::string Data(const std::string& lunPath)
    {
        storagesim::StateView view;
        EXPECT_HR(S_OK, storagesim::ReadState(&view));
        std::string data;
        for (const auto& lun : view.luns)
            if (lun.path == lunPath &&
                FAILED(storagesim::ReadLunData(lun.filer, lun.path, 0, 6, &data)))
                ADD_FAILURE() << lunPath;
        for (const auto& disk : view.disks)
            data += disk.path == lunPath ? " on disk" : "";
        return data;
    }

    storagesim::CStorageService m_service;
    std::unique_ptr<CProviderCore> m_core;
    std::unique_ptr<CLunRecord> m_lun;
};

// A set across both filers: the cut holds what was written before the commit and not after,
// the mapped target LUN shows it on its host disk, and deleting removes disk, LUN and record,
// also after a new set has emptied the map.
TEST_F(ProviderCoreTest, WholeSetOnData)
{
    ASSERT_HR(S_OK, Act(Op::kAdd, kLunE));
    ASSERT_HR(S_OK, Act(Op::kAdd, kLunI));
    ASSERT_HR(S_OK, Act(Op::kPrepare));
    for (const char* data : {"before", "after!"}) {
        for (const char* filer : {"verdane01", "verdane02"})
            ASSERT_HR(S_OK, storagesim::WriteLunData(filer, "/vol/vol1/lun1", 0, data));
        if (*data == 'b') {
            ASSERT_HR(S_OK, Act(Op::kCommit));
        }
    }
    ASSERT_HR(S_OK, Act(Op::kBuild));
    ASSERT_HR(S_OK, Act(Op::kMap));
    std::vector<std::string> paths;
    for (DWORD n = 0; n < 2; ++n)
        for (LPCWSTR psz :
             {Entry(n)->TargetLunPath(), Entry(n)->TargetLunPath2(), Entry(n)->TargetLunSerialNo()})
            paths.push_back(FieldText(psz));
    EXPECT_EQ("before on disk", Data(paths[0]));
    EXPECT_EQ("before on disk", Data(paths[3]));
    for (size_t n = 0; n < 2; ++n) {
        if (n == 1) {
            ASSERT_HR(S_OK, m_core->SetSnapshotSetId(&kOther));
        }
        ASSERT_HR(S_OK, m_core->DeleteTargetLun(Wide(paths[3 * n]).c_str(),
                                                Wide(paths[3 * n + 1]).c_str(),
                                                Wide(paths[3 * n + 2]).c_str()));
        EXPECT_EQ("", Data(paths[3 * n]));
        EXPECT_EQ(1 - n, m_core->TargetLunMap().GetCount());
        EXPECT_EQ(std::string::npos, StateText().find("record " + paths[3 * n + 2]));
    }
}

TEST_F(ProviderCoreTest, FailuresLeaveTheSetAsItWas)
{
    struct Row
    {
        int phase;
        const char* fault; // of the simulated service (E_ACCESSDENIED), or of pal ("Reg...")
        Op op;
        LPCWSTR arg;
        DWORD n;
        HRESULT hr;
        const char* line; // at level 1
    } rows[] = {
        {0, nullptr, Op::kAdd, kLunF, kOtherSet, ORVPROV_E_INCONSISTENT_SNAPSHOTSETID,
         "guidSnapshotSetId does not match m_guidSnapshotSetId\n"},
        {0, nullptr, Op::kAdd, W(""), 0, E_INVALIDARG, "pszSourceLunSerialNo is empty string\n"},
        {0, nullptr, Op::kAdd, W("AC00000000K1"), 0, ORVPROV_E_LUN_NOT_RECOGNIZED,
         "m_pStore->VerifyLun FAILED or LUN is not supported [hr=0x00000000]\n"},
        {0, "EnumVirtualDisks", Op::kAdd, kLunF, 0, ORVPROV_E_LUN_NOT_RECOGNIZED,
         "m_pStore->VerifyLun FAILED or LUN is not supported [hr=0xc0040308]\n"},
        {0, "EnumVirtualDisks", Op::kSupported, kLunE, 0, ORVPROV_E_ENUMVDISK_FAILED,
         "m_pStore->VerifyLun FAILED [hr=0xc0040308]\n"},
        {0, "IsUnlockedCloneSupported", Op::kSupported, kLunE, 0, E_ACCESSDENIED,
         "m_pStore->IsUnlockedCloneSupported FAILED [hr=0x80070005]\n"},
        {0, "EnumVirtualDisks", Op::kUnlocked, kLunE, 0, ORVPROV_E_ENUMVDISK_FAILED,
         "m_pStore->VerifyLun FAILED [hr=0xc0040308]\n"},
        {0, nullptr, Op::kPrepare, nullptr, kOtherSet, ORVPROV_E_INCONSISTENT_SNAPSHOTSETID,
         "guidSnapshotSetId does not match m_guidSnapshotSetId\n"},
        {0, "Begin_CreateSnapShot1", Op::kPrepare, nullptr, 0, ORVPROV_E_PREPARESNAPSHOT_FAILED,
         "m_pStore->PrepareSnapshot FAILED [hr=0xc004030a]\n"},
        {0, nullptr, Op::kFind, kLunF, 0, ORVPROV_E_LUN_NOT_RECOGNIZED, ""},
        {1, nullptr, Op::kCommit, nullptr, kOtherSet, ORVPROV_E_INCONSISTENT_SNAPSHOTSETID,
         "guidSnapshotSetId does not match m_guidSnapshotSetId\n"},
        {2, "GetTargetLunInfo", Op::kBuild, nullptr, 0, ORVPROV_E_GETTARGETLUNINFO_FAILED,
         "m_pStore->GetTargetLunPath FAILED [hr=0xc0040304]\n"},
        {4, nullptr, Op::kMap, W("no-colons"), 0, E_INVALIDARG,
         "CrackLunPath2 FAILED [hr=0x80070057]\n"},
        {4, "CreateTargetLun", Op::kMap, nullptr, 0, ORVPROV_E_MAPTARGETLUN_FAILED,
         "m_pStore->MapTargetLun FAILED [hr=0xc0040305]\n"},
        {4, "RegOpenKeyExW", Op::kVerify, nullptr, 0, E_ACCESSDENIED, ""},
        {4, nullptr, Op::kVerify, kLunF, 0, ORVPROV_E_LUN_NOT_RECOGNIZED, ""},
        {4, nullptr, Op::kDelete, W("no-colons"), 0, E_INVALIDARG,
         "m_pStore->DeleteTargetLun FAILED [hr=0x80070057]\n"},
        {4, "RegDeleteKeyW", Op::kDelete, nullptr, 0, E_ACCESSDENIED,
         "m_pStore->DeleteMappedLunDetails FAILED [hr=0x80070005]\n"},
        {4, nullptr, Op::kFlags, W("bad"), 0x800, E_INVALIDARG,
         "m_pStore->MaskTargetLun FAILED [hr=0x80070057]\n"},
        {4, nullptr, Op::kFlags, nullptr, 0x801, VSS_E_UNSUPPORTED_CONTEXT, ""},
        {4, nullptr, Op::kBackup, nullptr, kOtherSet, ORVPROV_E_INCONSISTENT_SNAPSHOTSETID,
         "guidSnapshotSetId does not match m_guidSnapshotSetId\n"},
        // Mapped but not recorded: the LUN stays in the map, so this process still knows it.
        {3, "RegCreateKeyExW", Op::kMap, nullptr, 0, E_ACCESSDENIED,
         "m_pStore->SaveMappedLunDetails FAILED [hr=0x80070005]\n"},
        {4, nullptr, Op::kFlags, nullptr, 0, VSS_E_UNSUPPORTED_CONTEXT, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message()
                     << int(row.op) << " " << (row.fault ? row.fault : "") << " " << row.line);
        Start(row.phase);
        const std::string before = StateText();
        if (row.fault && row.fault[0] == 'R')
            pal::InjectFault(row.fault, ERROR_ACCESS_DENIED, 1);
        else if (row.fault && FAILED(storagesim::SetFault(row.fault, E_ACCESSDENIED, 1)))
            ADD_FAILURE() << row.fault;
        SetVDCacheFalse();
        TraceSetLevel(TRACE_LEVEL_ERROR);
        EXPECT_HR(row.hr, Act(row.op, row.arg, row.n));
        EXPECT_NE(std::string::npos, TakeTraceText().find(row.line));
        // A failed target build ends the set: its id alone is cleared.
        std::string after = StateText();
        if (row.op == Op::kBuild && after.rfind("set 0 ", 0) == 0)
            after.replace(0, 5, "set 4369");
        if (row.op == Op::kMap && row.hr == E_ACCESSDENIED && after.find("\nmap ") != after.npos)
            after.erase(after.find("\nmap "),
                        after.find('\n', after.find("\nmap ") + 1) - after.find("\nmap "));
        EXPECT_EQ(before, after);
    }
    // A commit the service refuses at its cut.
    Start(0);
    ASSERT_HR(S_OK, storagesim::SetFault("CreateSnapShot1", E_ACCESSDENIED, 1));
    ASSERT_HR(S_OK, Act(Op::kPrepare));
    const std::string before = StateText();
    EXPECT_HR(ORVPROV_E_CREATESNAPSHOT_FAILED, Act(Op::kCommit));
    EXPECT_EQ(before, StateText());
}

// Auto-recovery and TxF recovery end in a backup snapshot of the recovered clone, except on the
// filer that cannot make one; deferred recovery makes none.
TEST_F(ProviderCoreTest, RecoveryEndsInABackupSnapshot)
{
    struct Row
    {
        LPCWSTR serial;
        LONG eAttr;
        DWORD dwAsync; // of the backup snapshot's creation
        HRESULT hr;
        bool fBackup;
    } rows[] = {
        {kLunE, SNAPSHOT_ATTR_AUTO_RECOVERY, 1, S_OK, true},
        {kLunE, SNAPSHOT_ATTR_TXF_RECOVERY, 0, S_OK, true},
        // The filer refuses: in one call that counts as made; begun asynchronously, the
        // creation never reaches its cut and the wait for it runs out.
        {kLunI, SNAPSHOT_ATTR_AUTO_RECOVERY, 0, S_OK, false},
        {kLunI, SNAPSHOT_ATTR_AUTO_RECOVERY, 1, ORVPROV_E_PREPARESNAPSHOT_FAILED, false},
        {kLunE, SNAPSHOT_ATTR_NONE, 1, S_OK, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.eAttr);
        Start(4, row.eAttr, row.serial);
        EXPECT_EQ(row.eAttr > 0, m_core->IsRecoveryEnabled());
        // Read-write is tested first; post-recovery changes nothing.
        for (DWORD dwFlags : {0x300u, 0x400u})
            EXPECT_HR(S_OK, Act(Op::kFlags, nullptr, dwFlags));
        EXPECT_HR(row.eAttr > 0 ? ORVPROV_E_LUN_NOT_RECOGNIZED : S_OK,
                  Act(Op::kFlags, W("bad"), 0x200));
        EXPECT_HR(row.eAttr > 0 ? ORVPROV_E_MULTILUN_VOLUME_NOT_SUPPORTED : S_OK,
                  Act(Op::kFlags, W("2"), 0x200));
        // Twice: two copies, and the same clone recorded.
        for (int i = 0; i < 2; ++i)
            EXPECT_HR(S_OK, Act(Op::kFlags, nullptr, 0x200));
        EXPECT_EQ(2u * (row.eAttr > 0), m_core->BackupSnapshots().GetCount());
        m_core->LCPairs().MoveFirst();
        EXPECT_EQ(row.eAttr > 0 ? FieldText(Entry(0)->TargetLunPath()) : "<null>",
                  FieldText(m_core->LCPairs().Current()->Clone()));
        EXPECT_EQ(row.eAttr == 0,
                  TakeTraceText().find(
                      "DeferredRecovery: Not creating backup snapshot as configured\n") !=
                      std::string::npos);

        WriteULongNoFence(&CConfig::sm_dwAsyncCreateSnapshot, row.dwAsync);
        WriteULongNoFence(&CConfig::sm_fDatasetsEnabled, 1);
        pal::SetClockScale(1000);
        EXPECT_HR(row.hr, m_core->PostFinalCommitSnapshots(&kSet));
        pal::SetClockScale(1);
        storagesim::StateView view;
        ASSERT_HR(S_OK, storagesim::ReadState(&view));
        EXPECT_EQ(SUCCEEDED(row.hr), !view.datasets.empty()); // not tagged after a failure
        m_core->ClearSnapshotSetId(); // as the front does, after which no second one is made
        EXPECT_HR(S_OK, m_core->PostFinalCommitSnapshots(&kSet));
        ASSERT_HR(S_OK, storagesim::ReadState(&view));
        size_t cBackup = 0;
        for (const auto& snapshot : view.snapshots)
            cBackup += snapshot.name == "{5e7a11d0-1111-4a4a-0102-030405060708}_backup";
        EXPECT_EQ(row.fBackup, cBackup == 1) << cBackup;
    }
}

// The current id keeps the set, another discards it whole; masking skips incomplete and
// foreign LUNs silently or with a trace, and unmaps the provider's own.
TEST_F(ProviderCoreTest, SetPhasesAndMasking)
{
    ASSERT_HR(S_OK, Act(Op::kAdd, kLunE, SNAPSHOT_ATTR_TXF_RECOVERY));
    ASSERT_HR(S_OK, Act(Op::kAdd, kLunF, SNAPSHOT_ATTR_NONE));
    for (Op op : {Op::kPrepare, Op::kCommit, Op::kBuild, Op::kMap})
        ASSERT_HR(S_OK, Act(op));
    ASSERT_HR(S_OK, Act(Op::kFlags, nullptr, 0x200));
    // The second LUN takes no part in recovery: passed over.
    CLunRecord second(TargetLun(1));
    TakeTraceText();
    EXPECT_HR(S_OK, m_core->OnLunStateChange(&second.Get(), nullptr, 1, 0x200));
    EXPECT_NE(std::string::npos,
              TakeTraceText().find("Snapshot for lun path /vol/vol1/lun2 does not support "
                                   "auto-recovery. Not added to backup set"));
    EXPECT_EQ(1u, m_core->BackupSnapshots().GetCount());
    const std::string before = StateText();
    ASSERT_HR(S_OK, m_core->SetSnapshotSetId(&kSet));
    EXPECT_EQ(before, StateText());

    CLunRecord luns[] = {CLunRecord(TargetLun(0, "ACMEDISK")),
                         CLunRecord(CLunBuilder::OrvaneLun().AddScsiInterconnect("a", "b:c:d")),
                         CLunRecord(TargetLun(1, "ORVANE  "))};
    VDS_LUN_INFORMATION array[] = {luns[0].Get(), luns[1].Get(), luns[2].Get()};
    const std::string record0 = "record " + FieldText(Entry(0)->TargetLunSerialNo()) + "\n";
    const std::string path1 = FieldText(Entry(1)->TargetLunPath());
    TakeTraceText();
    TraceSetLevel(TRACE_LEVEL_ERROR);
    EXPECT_HR(S_OK, m_core->OnLunStateChange(array, nullptr, 3, VSS_ONLUNSTATECHANGE_DO_MASK_LUNS));
    // Only the incomplete LUN is traced (after the unterminated line of the passed-over entry).
    const std::string trace = TakeTraceText();
    EXPECT_EQ("This LUN does not have complete information!\n    Skipping to the next LUN!\n",
              trace.substr(trace.find("This LUN")));
    EXPECT_EQ("", Data(path1));
    EXPECT_HR(S_OK, m_core->MaskTargetLun(nullptr, nullptr, 0));
    ASSERT_HR(S_OK, m_core->SetSnapshotSetId(&kOther));
    EXPECT_EQ("set 8738 recovery 0\n" + record0, StateText());
    CProviderCore uninitialized, otherStore;
    EXPECT_HR(S_OK, uninitialized.AbortSnapshots(&kSet));
    WriteULongNoFence(&CConfig::sm_dwStoreSubsystemType, 2);
    TakeTraceText();
    EXPECT_HR(S_OK, otherStore.Initialize());
    EXPECT_NE(nullptr, otherStore.Store());
    EXPECT_NE(std::string::npos,
              TakeTraceText().find("Invalid StoreSubsystemType value, defaulting to SS_TESSERA\n"));
}

// Every allocation of each operation fails in turn, each failure leaving everything as it
// was, until the operation succeeds.
TEST_F(ProviderCoreTest, AllocationSweep)
{
    struct Row
    {
        int phase;
        Op op;
        LPCWSTR arg = nullptr;
        DWORD n = 0;
    } rows[] = {{0, Op::kAdd, kLunF, SNAPSHOT_ATTR_TXF_RECOVERY},
                {0, Op::kPrepare},
                {0, Op::kFind, kLunE},
                {3, Op::kMap},
                {4, Op::kVerify},
                {4, Op::kFlags, nullptr, 0x200},
                {5, Op::kBackup},
                {4, Op::kFlags, nullptr, 0x800}};
    for (bool fNew : {false, true}) {
        for (const Row& row : rows) {
            SCOPED_TRACE(testing::Message() << int(row.op) << (fNew ? " new" : " task"));
            // Recovery stays off when preparing: the flag is set before the store is asked.
            Start(std::min(row.phase, 4), row.op == Op::kPrepare ? 0 : 1);
            if (row.phase == 5) {
                ASSERT_HR(S_OK, Act(Op::kFlags, nullptr, 0x200));
            }
            FirstTargetLun();
            TraceSetLevel(0);
            ULONG n = 1;
            for (HRESULT hr = E_FAIL; FAILED(hr) && n < 200; ++n) {
                const std::string before = StateText();
                (fNew ? pal::FailNothrowNewAt : pal::FailTaskAllocAt)(n, true);
                hr = Act(row.op, row.arg, row.n);
                pal::FailNothrowNewAt(0);
                pal::FailTaskAllocAt(0);
                EXPECT_TRUE(SUCCEEDED(hr) || before == StateText()) << n << " " << HexCode(hr);
            }
            EXPECT_LT(n, 200u);
        }
    }
}

// A second process: the test program again, on the machine of the test below.
TEST(ProviderCoreChild, DISABLED_FindsTheMappedLun)
{
    const char* root = std::getenv("ORV_CORE_CHILD_ROOT");
    const char* serial = std::getenv("ORV_CORE_CHILD_SERIAL");
    if (!root || !serial)
        GTEST_SKIP() << "runs only as a child of the test below";
    setenv("ORVSIM_ROOT", root, 1);
    ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    storagesim::CStorageService service;
    ASSERT_HR(S_OK, service.Start());
    CProviderCore core;
    CTargetLunInfo info;
    ASSERT_HR(S_OK, core.Initialize());
    ASSERT_HR(S_OK, core.VerifyMappedTargetLun(LUN_IDENTITY, Wide(serial).c_str(), &info));
    EXPECT_EQ("UNKNOWN", FieldText(info.DeviceId()));
}

TEST_F(ProviderCoreTest, MappedLunsReloadInANewProcess)
{
    Start(4);
    registry::ChildProcess child(
        registry::SelfArgs("ProviderCoreChild.DISABLED_FindsTheMappedLun"),
        {"ORV_CORE_CHILD_ROOT=" + Root().string(),
         "ORV_CORE_CHILD_SERIAL=" + FieldText(Entry(0)->TargetLunSerialNo())});
    auto result = child.Wait();
    EXPECT_EQ(0, result.exitCode) << result.out << result.err;
    EXPECT_NE(std::string::npos, result.out.find("[  PASSED  ] 1 test")) << result.out;
}

} // namespace
