// The store subsystem adapter against the simulated storage service: each operation's success,
// its failure codes, and the clean-up of an abandoned set.
#include "diag/config.h"
#include "diag/trace.h"
#include "provider/strings.h"
#include "res/orvmsg.h"
#include "sim/storage/storagesim.h"
#include "store/tesserastore.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include "pal/combaseapi.h"
#include "pal/palcontrol.h"

#include <memory>
#include <string>

namespace {

using orvtest::Narrow;
using orvtest::TakeTraceText;

// The task allocation of the second path in GetTargetLunInfo, counted from the call: after the
// service's answer (the block and its six strings).
constexpr ULONG kPath2Allocation = 8;

std::string Text(LPCWSTR psz)
{
    return psz != nullptr ? Narrow(reinterpret_cast<const char16_t*>(psz)) : "(null)";
}

class TesseraStoreTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        CConfig::ResetForTest();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_HR(S_OK, m_service.Start());
        AddEntry(W("E:\\"), W("/vol/vol1/lun1"));
    }
    void TearDown() override
    {
        m_store.reset();
        EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
        m_entries.Clear();
        m_service.Stop();
        CoUninitialize();
        CConfig::ResetForTest();
        orvtest::PalTest::TearDown();
    }

    void AddEntry(LPCWSTR pszDrive, LPCWSTR pszPath)
    {
        auto* pEntry = new CSnapshotEntry;
        ASSERT_TRUE(pEntry->SetSourceLunInfo(W("ORVANE"), W("LUN"), W("9.1"), W("serial"), pszPath,
                                             pszDrive));
        pEntry->SetFiler(DuplicateString(W("verdane01")));
        m_entries.AddTail(pEntry);
    }

    // The set's pairs, handed to the store; freed here only when the preparation failed.
    HRESULT Prepare()
    {
        LC_PAIR_ARRAY pairs{1, static_cast<LC_PAIR*>(CoTaskMemAlloc(sizeof(LC_PAIR)))};
        pairs.Pairs[0] =
            LC_PAIR{DuplicateString(W("verdane01")), DuplicateString(W("/vol/vol1/lun1")),
                    DuplicateString(W("")), DuplicateString(W("E:\\")), 0};
        pal::FailTaskAllocAt(m_nthTask);
        pal::FailNothrowNewAt(m_nthNew);
        HRESULT hr = m_store->PrepareSnapshot(W("snap"), &m_entries, &pairs, 2);
        pal::FailTaskAllocAt(0);
        pal::FailNothrowNewAt(0);
        if (FAILED(hr)) {
            LC_PAIR& pair = pairs.Pairs[0];
            for (LPWSTR psz : {pair.Filer, pair.LunPath, pair.Clone, pair.Device})
                CoTaskMemFree(psz);
            CoTaskMemFree(pairs.Pairs);
        }
        return hr;
    }

    // The adapter's own operations beside the interface's.
    CTesseraStoreSubSystem& Tessera() { return static_cast<CTesseraStoreSubSystem&>(*m_store); }

    static storagesim::StateView State()
    {
        storagesim::StateView view;
        EXPECT_HR(S_OK, storagesim::ReadState(&view));
        return view;
    }
    static bool HasSnapshot(const std::string& name = "snap")
    {
        for (const auto& s : State().snapshots) {
            if (s.lunPath == "/vol/vol1/lun1" && s.name == name)
                return true;
        }
        return false;
    }
    static size_t TargetLunCount()
    {
        size_t count = 0;
        for (const auto& lun : State().luns)
            count += lun.snapshot.empty() ? 0 : 1;
        return count;
    }

    storagesim::CStorageService m_service;
    std::unique_ptr<IStoreSubsystem> m_store{new CTesseraStoreSubSystem};
    CLinkedList<CSnapshotEntry> m_entries;
    // The allocations that fail in the next Prepare only; 0: none.
    ULONG m_nthTask = 0;
    ULONG m_nthNew = 0;
};

TEST_F(TesseraStoreTest, SnapshotAndTargetLunLifecycle)
{
    EXPECT_HR(S_OK, m_store->Initialize());
    ASSERT_HR(S_OK, Prepare());
    EXPECT_FALSE(HasSnapshot());
    ASSERT_HR(S_OK, m_store->CreateSnapshot());
    EXPECT_TRUE(HasSnapshot());

    CTargetLunInfo info;
    ASSERT_HR(S_OK,
              m_store->GetTargetLunInfo(W("verdane01"), W("/vol/vol1/lun1"), W("snap"), 0, &info));
    EXPECT_EQ("verdane01:/vol/vol1/lun1:snap", Text(info.TargetLunPath2()));
    EXPECT_EQ("ORVANE", Text(info.VendorId()));
    EXPECT_EQ(0u, Text(info.TargetLunPath1()).rfind("/vol/vol1/lun1_ss", 0));
    info.SetFilerNameAndSourceLunPath(DuplicateString(W("verdane01")),
                                      DuplicateString(W("/vol/vol1/lun1")));
    ASSERT_HR(S_OK, m_store->MapTargetLun(W("snap"), &info));
    EXPECT_EQ(1u, TargetLunCount());

    // Unmapping keeps the snapshot; deleting removes it, though the target LUN is gone already.
    EXPECT_HR(S_OK, m_store->UnmapTargetLun(info.TargetLunPath1(), info.TargetLunPath2()));
    EXPECT_EQ(0u, TargetLunCount());
    EXPECT_TRUE(HasSnapshot());
    TraceSetLevel(TRACE_LEVEL_ERROR);
    EXPECT_HR(S_OK, m_store->DeleteTargetLun(info.TargetLunPath1(), info.TargetLunPath2()));
    EXPECT_FALSE(HasSnapshot());
    EXPECT_NE(std::string::npos,
              TakeTraceText().find("c.pVssSupport->DeleteTargetLun FAILED [hr=0x"));
    EXPECT_HR(E_INVALIDARG, m_store->DeleteTargetLun(W("x"), W("no-colons")));
    EXPECT_NE(std::string::npos, TakeTraceText().find("CrackLunPath2 FAILED [hr=0x80070057]\n"));
}

TEST_F(TesseraStoreTest, FailureCodes)
{
    TraceSetLevel(TRACE_LEVEL_ERROR);
    CLinkedList<CSnapshotEntry> none;
    LC_PAIR_ARRAY pairs{0, nullptr};
    EXPECT_HR(E_INVALIDARG, m_store->PrepareSnapshot(W("snap"), &none, &pairs, 2));

    ASSERT_HR(S_OK, storagesim::SetFault("Begin_CreateSnapShot1", RPC_E_SERVERFAULT, 1));
    EXPECT_HR(ORVPROV_E_PREPARESNAPSHOT_FAILED, Prepare());
    ASSERT_HR(S_OK, storagesim::SetFault("CreateSnapShot1", E_ACCESSDENIED, 1));
    ASSERT_HR(S_OK, Prepare());
    EXPECT_HR(ORVPROV_E_CREATESNAPSHOT_FAILED, m_store->CreateSnapshot());
    EXPECT_FALSE(HasSnapshot());

    CTargetLunInfo info;
    EXPECT_HR(
        ORVPROV_E_GETTARGETLUNINFO_FAILED,
        m_store->GetTargetLunInfo(W("verdane01"), W("/vol/vol1/lun1"), W("nosuch"), 1, &info));
    ASSERT_HR(S_OK, storagesim::SetFault("CreateTargetLun", E_ACCESSDENIED, 1));
    EXPECT_HR(ORVPROV_E_MAPTARGETLUN_FAILED, m_store->MapTargetLun(W("snap"), &info));

    ASSERT_HR(S_OK, storagesim::SetFault("SetDatasetAttrib", E_ACCESSDENIED, 1));
    EXPECT_HR(E_ACCESSDENIED, m_store->SetDatasetAttrib(W("{set}"), &m_entries));
    EXPECT_HR(S_OK, m_store->SetDatasetAttrib(W("{set}"), &m_entries));
    EXPECT_EQ(1u, State().datasets.size());

    BOOLEAN fSupported = FALSE;
    EXPECT_HR(S_OK, m_store->IsUnlockedCloneSupported(W("verdane01"), &fSupported));
    EXPECT_TRUE(fSupported);
    EXPECT_HR(S_OK, m_store->IsUnlockedCloneSupported(W("verdane02"), &fSupported));
    EXPECT_FALSE(fSupported);
    ASSERT_HR(S_OK, storagesim::SetFault("IsUnlockedCloneSupported", E_ACCESSDENIED, 1));
    EXPECT_HR(E_ACCESSDENIED, m_store->IsUnlockedCloneSupported(W("verdane01"), &fSupported));
    TakeTraceText();

    // Without the service every operation that needs it fails with the activation's code.
    pal::InjectFault("CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG));
    EXPECT_HR(REGDB_E_CLASSNOTREG, m_store->IsUnlockedCloneSupported(W("verdane01"), &fSupported));
    EXPECT_HR(REGDB_E_CLASSNOTREG, m_store->SetDatasetAttrib(W("{set}"), &m_entries));
    EXPECT_HR(REGDB_E_CLASSNOTREG,
              m_store->DeleteTargetLun(W("/t"), W("verdane01:/vol/vol1/lun1:snap")));
    EXPECT_HR(REGDB_E_CLASSNOTREG,
              m_store->UnmapTargetLun(W("/t"), W("verdane01:/vol/vol1/lun1:snap")));
    EXPECT_HR(REGDB_E_CLASSNOTREG,
              Tessera().DeleteSnapshot(W("verdane01"), W("/vol/vol1/lun1"), W("snap")));
    CTargetLunInfo unreached;
    EXPECT_HR(REGDB_E_CLASSNOTREG, m_store->GetTargetLunInfo(W("verdane01"), W("/vol/vol1/lun1"),
                                                             W("snap"), 0, &unreached));
    EXPECT_HR(REGDB_E_CLASSNOTREG, m_store->MapTargetLun(W("snap"), &info));
    pal::ClearFaults();
    EXPECT_NE(std::string::npos, TakeTraceText().find("GetVssSupport FAILED [hr=0x80040154]\n"));
}

// Deletions the service refuses are traced only; only a malformed second path or a missing
// service fail them.
TEST_F(TesseraStoreTest, RefusedDeletionsAreTracedOnly)
{
    ASSERT_HR(S_OK, Prepare());
    ASSERT_HR(S_OK, m_store->CreateSnapshot());
    TraceSetLevel(TRACE_LEVEL_WARNING);
    TakeTraceText();
    LPCWSTR pszPath2 = W("verdane01:/vol/vol1/lun1:snap");
    ASSERT_HR(S_OK, storagesim::SetFault("DeleteTargetLun", E_ACCESSDENIED, 2));
    ASSERT_HR(S_OK, storagesim::SetFault("DeleteSnapShot", E_ACCESSDENIED, 2));
    EXPECT_HR(S_OK, m_store->DeleteTargetLun(W("/t"), pszPath2));
    EXPECT_HR(S_OK, m_store->UnmapTargetLun(W("/t"), pszPath2));
    EXPECT_HR(S_OK, Tessera().DeleteSnapshot(W("verdane01"), W("/vol/vol1/lun1"), W("snap")));
    EXPECT_TRUE(HasSnapshot());
    std::string text = TakeTraceText();
    for (const char* line : {"c.pVssSupport->DeleteTargetLun FAILED [hr=0x80070005]\n",
                             "DeleteSnapShot FAILED, hr=0x80070005]\n",
                             "c.pVssSupport->DeleteSnapShot FAILED, hr=0x80070005]\n"})
        EXPECT_NE(std::string::npos, text.find(line)) << line << "\nin:\n" << text;

    // An empty name still reaches the service (which consumes the fault); a missing one not.
    ASSERT_HR(S_OK, storagesim::SetFault("DeleteSnapShot", E_ACCESSDENIED, 1));
    EXPECT_HR(S_OK, Tessera().DeleteSnapshot(W("verdane01"), W("/vol/vol1/lun1"), nullptr));
    EXPECT_EQ("    Empty param(s), skipping DeleteSnapShot\n", TakeTraceText());
    EXPECT_HR(S_OK, Tessera().DeleteSnapshot(W("verdane01"), W("/vol/vol1/lun1"), W("")));
    std::vector<storagesim::FaultInfo> faults;
    ASSERT_HR(S_OK, storagesim::ListFaults(&faults));
    EXPECT_TRUE(faults.empty());

    EXPECT_HR(E_INVALIDARG, m_store->UnmapTargetLun(W("/t"), W("no-colons")));
    EXPECT_TRUE(HasSnapshot());
}

// The target LUN is asked for as writable exactly when the snapshot's attribute is 1 or more;
// its second path comes from the arguments.
TEST_F(TesseraStoreTest, TargetLunWritableByAttribute)
{
    ASSERT_HR(S_OK, Prepare());
    ASSERT_HR(S_OK, m_store->CreateSnapshot());
    for (LONG eAttr : {-1L, 0L, 1L, 2L}) {
        SCOPED_TRACE(eAttr);
        CTargetLunInfo info;
        ASSERT_HR(S_OK, m_store->GetTargetLunInfo(W("verdane01"), W("/vol/vol1/lun1"), W("snap"),
                                                  eAttr, &info));
        EXPECT_EQ("verdane01:/vol/vol1/lun1:snap", Text(info.TargetLunPath2()));
        info.SetFilerNameAndSourceLunPath(DuplicateString(W("verdane01")),
                                          DuplicateString(W("/vol/vol1/lun1")));
        ASSERT_HR(S_OK, m_store->MapTargetLun(W("snap"), &info));
        bool fReadonly = false;
        for (const auto& disk : State().disks)
            if (disk.path == Text(info.TargetLunPath1()))
                fReadonly = disk.fReadonly;
        EXPECT_EQ(eAttr < 1, fReadonly);
        ASSERT_HR(S_OK, m_store->UnmapTargetLun(info.TargetLunPath1(), info.TargetLunPath2()));
    }
}

// Allocation failures: the code, no error line, and nothing left on the service.
TEST_F(TesseraStoreTest, AllocationFailures)
{
    struct Row
    {
        const char* name;
        ULONG nthTask;
        ULONG nthNew;
        HRESULT prepare;
        HRESULT create; // the commit after the failed preparation
    };
    const Row rows[] = {
        // The helper: reported as an invalid argument, and no helper is kept.
        {"helper", 0, 1, E_INVALIDARG, E_UNEXPECTED},
        // The drive names: the new helper stays, with nothing to commit.
        {"drive names", 1, 0, E_OUTOFMEMORY, S_OK},
    };
    TraceSetLevel(TRACE_LEVEL_ERROR);
    TakeTraceText();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        m_store.reset(new CTesseraStoreSubSystem);
        m_nthTask = row.nthTask;
        m_nthNew = row.nthNew;
        EXPECT_HR(row.prepare, Prepare());
        m_nthTask = m_nthNew = 0;
        EXPECT_EQ("", TakeTraceText());
        EXPECT_EQ(0u, storagesim::ActiveCreationCount());
        EXPECT_EQ(0u, storagesim::LiveObjectCount());
        EXPECT_HR(row.create, m_store->CreateSnapshot());
        EXPECT_FALSE(HasSnapshot());
    }

    // The target's second path: the service's answer is freed, the path stays unset.
    ASSERT_HR(S_OK, Prepare());
    ASSERT_HR(S_OK, m_store->CreateSnapshot());
    CTargetLunInfo info;
    pal::FailTaskAllocAt(kPath2Allocation);
    EXPECT_HR(E_OUTOFMEMORY,
              m_store->GetTargetLunInfo(W("verdane01"), W("/vol/vol1/lun1"), W("snap"), 0, &info));
    pal::FailTaskAllocAt(0);
    EXPECT_EQ("", TakeTraceText());
    EXPECT_EQ(nullptr, info.TargetLunPath2());
    EXPECT_EQ("ORVANE", Text(info.VendorId()));
    // The creation's worker ends on its own.
    EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::LiveObjectCount() == 0; }));
}

TEST_F(TesseraStoreTest, CancelRemovesWhatTheSetLeft)
{
    // A set cut before: its snapshot is deleted by filer, source path and name.
    ASSERT_HR(S_OK, Prepare());
    ASSERT_HR(S_OK, m_store->CreateSnapshot());
    ASSERT_TRUE(HasSnapshot());
    TraceSetLevel(TRACE_LEVEL_INFO);
    TakeTraceText();
    EXPECT_HR(S_OK, m_store->CancelSnapshot(W("snap"), &m_entries));
    EXPECT_FALSE(HasSnapshot());
    EXPECT_NE(std::string::npos,
              TakeTraceText().find("Empty targetlunpath and targetlunpath2, do DeleteSnapShot\n"));

    // A set held at its cut: the creation is abandoned and nothing is left.
    ASSERT_HR(S_OK, Prepare());
    EXPECT_HR(S_OK, m_store->CancelSnapshot(W("snap"), &m_entries));
    EXPECT_FALSE(HasSnapshot());
    EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));

    // A set whose target LUN was mapped: the target LUN goes, and its snapshot with it.
    ASSERT_HR(S_OK, Prepare());
    ASSERT_HR(S_OK, m_store->CreateSnapshot());
    CTargetLunInfo info;
    ASSERT_HR(S_OK,
              m_store->GetTargetLunInfo(W("verdane01"), W("/vol/vol1/lun1"), W("snap"), 0, &info));
    info.SetFilerNameAndSourceLunPath(DuplicateString(W("verdane01")),
                                      DuplicateString(W("/vol/vol1/lun1")));
    ASSERT_HR(S_OK, m_store->MapTargetLun(W("snap"), &info));
    m_entries.MoveFirst();
    m_entries.Current()->TakeTargetLunInfo(info);
    ASSERT_EQ(1u, TargetLunCount());
    TakeTraceText();
    EXPECT_HR(S_OK, m_store->CancelSnapshot(W("snap"), &m_entries));
    EXPECT_EQ(0u, TargetLunCount());
    EXPECT_FALSE(HasSnapshot());
    EXPECT_NE(std::string::npos, TakeTraceText().find("DeleteTargetLun succeeded\n"));
}

} // namespace
