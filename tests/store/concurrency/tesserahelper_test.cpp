// The creation hand-off across the caller's thread and the service's callback thread, against
// the simulated storage service.
#include "store/tesserahelper.h"

#include "diag/config.h"
#include "diag/trace.h"
#include "provider/strings.h"
#include "sim/storage/simcodes.h"
#include "sim/storage/storagesim.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include "pal/combaseapi.h"
#include "pal/interlockedapi.h"
#include "pal/palcontrol.h"

#include <string>
#include <vector>

namespace {

using orvtest::TakeTraceText;

const std::string kFiler = "verdane01";
const std::string kLun = "/vol/vol1/lun1";

// The pairs of a set as the core hands them over: task-allocated, owned by the helper once
// PrepareSnapshot succeeds, by the test otherwise.
class CSetPairs
{
public:
    CSetPairs(const char16_t* filer, const char16_t* lunPath)
    {
        m_array.Count = 1;
        m_array.Pairs = static_cast<LC_PAIR*>(CoTaskMemAlloc(sizeof(LC_PAIR)));
        m_array.Pairs[0] = LC_PAIR{Dup(filer), Dup(lunPath), Dup(u""), Dup(u"E:\\"), 0};
    }
    ~CSetPairs()
    {
        if (m_fOwned) {
            LC_PAIR& pair = m_array.Pairs[0];
            for (LPWSTR psz : {pair.Filer, pair.LunPath, pair.Clone, pair.Device})
                CoTaskMemFree(psz);
            CoTaskMemFree(m_array.Pairs);
        }
    }
    LC_PAIR_ARRAY* Get() { return &m_array; }
    // PrepareSnapshot succeeded: the helper frees them.
    void HandOver() { m_fOwned = false; }

private:
    static LPWSTR Dup(const char16_t* psz)
    {
        return DuplicateString(reinterpret_cast<LPCWSTR>(psz));
    }
    LC_PAIR_ARRAY m_array{};
    bool m_fOwned = true;
};

class TesseraHelperTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        CConfig::ResetForTest();
        m_dwLevel = TraceGetLevel();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_HR(S_OK, m_service.Start());
        TraceSetLevel(TRACE_LEVEL_INFO);
    }
    void TearDown() override
    {
        EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
        m_service.Stop();
        EXPECT_EQ(0u, storagesim::LiveObjectCount());
        CoUninitialize();
        TraceSetLevel(m_dwLevel);
        CConfig::ResetForTest();
        orvtest::PalTest::TearDown();
    }

    static void SetConfig(DWORD* pdwValue, DWORD dwValue) { WriteULongNoFence(pdwValue, dwValue); }

    // Prepares a snapshot of E:\ named "snap"; the pairs pass to the helper on success.
    HRESULT Prepare(CTesseraHelper& helper, DWORD dwKind = 2, const char16_t* filer = u"verdane01",
                    const char16_t* drive = u"E:\\", const char16_t* name = u"snap",
                    ULONG nthAllocation = 0)
    {
        LPWSTR names[] = {const_cast<LPWSTR>(reinterpret_cast<LPCWSTR>(drive))};
        DRIVE_NAMES driveNames{1, names};
        CSetPairs pairs(filer, u"/vol/vol1/lun1");
        // An allocation fault applies to the helper only: not to the test's own records, nor to
        // the service's threads.
        pal::FailTaskAllocAt(nthAllocation, true);
        pal::FailNothrowNewAt(nthAllocation, true);
        HRESULT hr = helper.PrepareSnapshot(&driveNames, reinterpret_cast<LPCWSTR>(name),
                                            pairs.Get(), dwKind);
        pal::FailTaskAllocAt(0);
        pal::FailNothrowNewAt(0);
        if (SUCCEEDED(hr))
            pairs.HandOver();
        return hr;
    }

    static bool HasSnapshot(const std::string& lunPath = kLun, const std::string& name = "snap")
    {
        storagesim::StateView view;
        EXPECT_HR(S_OK, storagesim::ReadState(&view));
        for (const auto& snapshot : view.snapshots) {
            if (snapshot.filer == kFiler && snapshot.lunPath == lunPath && snapshot.name == name)
                return true;
        }
        return false;
    }

    static bool Contains(const std::string& text, const std::string& line)
    {
        return text.find(line) != std::string::npos;
    }

    storagesim::CStorageService m_service;
    DWORD m_dwLevel = 0;
};

TEST_F(TesseraHelperTest, DataWrittenBeforeTheCommitIsInTheSnapshotDataAfterItIsNot)
{
    CTesseraHelper helper(CConfig::GetAsyncCreateSnapshot());
    ASSERT_HR(S_OK, storagesim::WriteLunData(kFiler, kLun, 0, "before prepare"));
    ASSERT_HR(S_OK, Prepare(helper));
    // The service holds its callback at the cut point until the commit.
    EXPECT_EQ(1u, storagesim::ActiveCreationCount());
    EXPECT_FALSE(HasSnapshot());
    ASSERT_HR(S_OK, storagesim::WriteLunData(kFiler, kLun, 0, "between calls!"));
    EXPECT_HR(S_OK, helper.CreateSnapshot());
    ASSERT_HR(S_OK, storagesim::WriteLunData(kFiler, kLun, 0, "after creation"));
    std::string data;
    ASSERT_HR(S_OK, storagesim::ReadSnapshotData(kFiler, kLun, "snap", 0, 14, &data));
    EXPECT_EQ("between calls!", data);

    const std::string text = TakeTraceText();
    for (const char* line : {
             "**** Async CreateSnapshot mode\n",
             "Sink object refcount=1\n",
             "pCP->Advise\n",
             "Sink object is connected!\n",
             "Begin_CreateSnapShot1 succeeded\n",
             "**** Calling WaitForSingleObject on m_hContinuePrepareEvent\n",
             "Snapshot=snap, Machine=ORVHOST01, Progress=1[PROG_POLICY_CHECK]\n",
             "Snapshot=snap, Machine=ORVHOST01, Progress=20[PROG_KVX_SNAPCREATE]\n",
             "Snapshot=snap, Machine=ORVHOST01, Progress=29[PROG_KVX_SNAP_PREPARE]\n",
             "**** Calling WaitForSingleObject\n",
             "Snapshot=snap, Machine=ORVHOST01, Progress=43[???]\n",
             "**** CTesseraHelper::PrepareCreateSnapshot wakes up\n",
             "Async mode\n",
             "Calling m_pAsyncVssSupport->Finish_CreateSnapShot1\n",
             "m_pAsyncVssSupport->Finish_CreateSnapShot1 took ",
             " milisecs\n",
             "pCP->Unadvise succeeded\n",
         })
        EXPECT_TRUE(Contains(text, line)) << line << "\nin:\n" << text;

    // An instant cut takes the same data; its snapshot is recorded just after the commit.
    ASSERT_HR(S_OK, storagesim::SetCut(storagesim::Cut::kInstant));
    CTesseraHelper instant(1);
    ASSERT_HR(S_OK, Prepare(instant, 2, u"verdane01", u"E:\\", u"instant"));
    ASSERT_HR(S_OK, storagesim::WriteLunData(kFiler, kLun, 0, "between again!"));
    EXPECT_HR(S_OK, instant.CreateSnapshot());
    ASSERT_HR(S_OK, storagesim::WriteLunData(kFiler, kLun, 0, "after instant!"));
    ASSERT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
    ASSERT_HR(S_OK, storagesim::ReadSnapshotData(kFiler, kLun, "instant", 0, 14, &data));
    EXPECT_EQ("between again!", data);
}

TEST_F(TesseraHelperTest, EveryHandoffFormCutsTheSnapshot)
{
    for (auto handoff : {storagesim::Handoff::kReady, storagesim::Handoff::kBoth}) {
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
        ASSERT_HR(S_OK, storagesim::SetHandoff(handoff));
        CTesseraHelper helper(1);
        ASSERT_HR(S_OK, Prepare(helper));
        // With both forms the second hand-off must not wait long: the first answer decides.
        SetConfig(&CConfig::sm_dwMaxVssWait, handoff == storagesim::Handoff::kBoth ? 0 : 1200);
        EXPECT_HR(S_OK, helper.CreateSnapshot());
        EXPECT_TRUE(HasSnapshot());
        SetConfig(&CConfig::sm_dwMaxVssWait, 1200);
    }
}

TEST_F(TesseraHelperTest, ASecondHandoffWaitsForItsOwnTimeLimit)
{
    ASSERT_HR(S_OK, storagesim::SetHandoffFault(storagesim::HandoffFault::kTwice, 1));
    CTesseraHelper helper(1);
    ASSERT_HR(S_OK, Prepare(helper));
    TakeTraceText();
    // The first callback waits already; the second finds no signal and gives up at once.
    SetConfig(&CConfig::sm_dwMaxVssWait, 0);
    EXPECT_HR(S_OK, helper.CreateSnapshot());
    EXPECT_TRUE(HasSnapshot());
    EXPECT_TRUE(Contains(TakeTraceText(), "Timed out. Never received event for "
                                          "m_hContinueCreateEvent"));
}

TEST_F(TesseraHelperTest, CancelWhileTheCallbackWaitsAbandonsTheCreation)
{
    CTesseraHelper helper(1);
    ASSERT_HR(S_OK, Prepare(helper));
    TakeTraceText();
    EXPECT_HR(S_OK, helper.CancelSnapshot());
    EXPECT_FALSE(HasSnapshot());
    EXPECT_TRUE(Contains(TakeTraceText(), "Calling m_pSinkObject->Cancel\n"));
    // Everything is released: a second cancel and the commit find nothing to do.
    EXPECT_HR(S_OK, helper.CancelSnapshot());
    EXPECT_HR(S_OK, helper.CreateSnapshot());
}

TEST_F(TesseraHelperTest, TimeLimits)
{
    // The service never reaches its cut point: the preparation gives up after MaxTesseraWait.
    pal::SetClockScale(1000);
    for (DWORD dwWait : {0u, 2u}) {
        ASSERT_HR(S_OK, storagesim::SetHandoffFault(storagesim::HandoffFault::kNever, 1));
        SetConfig(&CConfig::sm_dwMaxTesseraWait, dwWait);
        CTesseraHelper helper(1);
        EXPECT_HR(E_UNEXPECTED, Prepare(helper));
        EXPECT_TRUE(Contains(TakeTraceText(),
                             "Timed out. Never received m_hContinuePrepareEvent event from "
                             "Tessera\n"));
        EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
        EXPECT_FALSE(HasSnapshot());
    }
    SetConfig(&CConfig::sm_dwMaxTesseraWait, 600);

    // No commit within MaxVssWait: the callback answers E_UNEXPECTED and the service abandons.
    SetConfig(&CConfig::sm_dwMaxVssWait, 0);
    CTesseraHelper helper(1);
    ASSERT_HR(S_OK, Prepare(helper));
    std::string text;
    ASSERT_TRUE(orvtest::WaitUntil([&text] {
        text += TakeTraceText();
        return Contains(text, "Timed out. Never received event for m_hContinueCreateEvent");
    }));
    EXPECT_HR(TESSERA_E_CREATION_ABANDONED, helper.CreateSnapshot());
    EXPECT_FALSE(HasSnapshot());
    EXPECT_TRUE(Contains(TakeTraceText(), "Finish_CreateSnapShot1 FAILED [hr=0xc0040469]\n"));
}

TEST_F(TesseraHelperTest, SynchronousMode)
{
    SetConfig(&CConfig::sm_dwAsyncCreateSnapshot, 0);
    CTesseraHelper helper(CConfig::GetAsyncCreateSnapshot());
    ASSERT_HR(S_OK, Prepare(helper));
    // Nothing reaches the service before the commit.
    EXPECT_EQ(0u, storagesim::ActiveCreationCount());
    EXPECT_FALSE(HasSnapshot());
    EXPECT_HR(S_OK, helper.CreateSnapshot());
    EXPECT_TRUE(HasSnapshot());
    std::string text = TakeTraceText();
    EXPECT_TRUE(Contains(text, "**** Sync CreateSnapshot mode\n")) << text;
    EXPECT_TRUE(Contains(text, "Sync mode\n")) << text;

    // A backup snapshot the second filer cannot make counts as made.
    CTesseraHelper backup(0);
    ASSERT_HR(S_OK, Prepare(backup, 4, u"verdane02", u"I:\\", u"set_backup"));
    EXPECT_HR(S_OK, backup.CreateSnapshot());
    EXPECT_TRUE(Contains(TakeTraceText(), "Backup snapshot not supported due to Verdane version "
                                          "or tandem-clone enabled\n"));

    // Any other failure comes back unchanged.
    ASSERT_HR(S_OK, storagesim::SetFault("CreateSnapShot", E_ACCESSDENIED, 1));
    CTesseraHelper failing(0);
    ASSERT_HR(S_OK, Prepare(failing));
    EXPECT_HR(E_ACCESSDENIED, failing.CreateSnapshot());
    EXPECT_TRUE(Contains(TakeTraceText(), "CreateSnapShot FAILED [hr=0x80070005]\n"));
}

// The hand-off failing: the preparation's wait, or the sink's steps on the service's callback
// thread. The creation starts late so that the helper's own wait is the first
// WaitForSingleObject.
TEST_F(TesseraHelperTest, FailingHandoffAbandonsTheCreation)
{
    struct Row
    {
        const char* api;
        ULONG nth;
        HRESULT prepare;
        HRESULT commit;
        const char* line;
    };
    const Row rows[] = {
        {"SetEvent", 1, E_UNEXPECTED, S_OK, "SetEvent FAILED [dwError=0x00000006]\n"},
        // The preparation's own wait.
        {"WaitForSingleObject", 1, HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE), S_OK,
         "WaitForSingleObject FAILED [dwError=0x00000006]\n"},
        {"WaitForSingleObject", 2, S_OK, TESSERA_E_CREATION_ABANDONED,
         "WaitForSingleObject FAILED [dwError=0x00000006]\n"},
    };
    SetConfig(&CConfig::sm_dwMaxTesseraWait, 1);
    TraceSetLevel(TRACE_LEVEL_ERROR);
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.api) + " #" + std::to_string(row.nth));
        ASSERT_HR(S_OK, storagesim::SetDelay("CreateSnapShot1", 200, 1));
        pal::InjectFault(row.api, ERROR_INVALID_HANDLE, row.nth);
        CTesseraHelper helper(1);
        EXPECT_HR(row.prepare, Prepare(helper));
        std::string text;
        EXPECT_TRUE(orvtest::WaitUntil([&text, &row] {
            text += TakeTraceText();
            return Contains(text, row.line);
        })) << text;
        EXPECT_EQ(1u, pal::FaultHits(row.api));
        pal::ClearFaults();
        EXPECT_HR(row.commit, helper.CreateSnapshot());
        EXPECT_FALSE(HasSnapshot());
        EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::LiveObjectCount() == 0; }));
        TakeTraceText();
    }
    SetConfig(&CConfig::sm_dwMaxTesseraWait, 600);
}

TEST_F(TesseraHelperTest, FailingCreationComesBackFromTheCommit)
{
    ASSERT_HR(S_OK, storagesim::SetFault("CreateSnapShot1", E_ACCESSDENIED, 1));
    CTesseraHelper helper(1);
    ASSERT_HR(S_OK, Prepare(helper));
    EXPECT_HR(E_ACCESSDENIED, helper.CreateSnapshot());
    EXPECT_FALSE(HasSnapshot());
}

// The sink's disconnection after the commit fails at each of its steps: the failure is traced,
// the snapshot stands and every object of the service is still released.
TEST_F(TesseraHelperTest, FailingDisconnectionIsTracedAndReleasesEverything)
{
    const struct
    {
        const char* method;
        HRESULT hr;
        const char* line;
    } rows[] = {
        {"QueryInterface(IConnectionPointContainer)", E_NOINTERFACE,
         "m_pConnectableObject->QueryInterface FAILED [hr=0x80004002]\n"},
        {"FindConnectionPoint", CONNECT_E_NOCONNECTION,
         "pCPC->FindConnectionPoint FAILED [hr=0x80040200]\n"},
        {"Unadvise", CONNECT_E_NOCONNECTION, "pCP->Unadvise FAILED [hr=0x80040200]\n"},
        // The service has gone with its connections: nothing to trace.
        {"QueryInterface(IConnectionPointContainer)", CO_E_OBJNOTCONNECTED, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.method);
        CTesseraHelper helper(1);
        ASSERT_HR(S_OK, Prepare(helper, 2, u"verdane01", u"E:\\", u"snap", 0));
        ASSERT_HR(S_OK, storagesim::SetFault(row.method, row.hr, 1));
        EXPECT_HR(S_OK, helper.CreateSnapshot());
        const std::string text = TakeTraceText();
        if (row.line != nullptr) {
            EXPECT_TRUE(Contains(text, row.line)) << text;
        } else {
            EXPECT_FALSE(Contains(text, "FAILED")) << text;
        }
        EXPECT_TRUE(HasSnapshot());
        EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::LiveObjectCount() == 0; }));
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
    }
}

// Every failing step of the preparation cleans up everything: the service's objects are
// released, the creation is dropped and the pairs stay the caller's.
TEST_F(TesseraHelperTest, EveryFailingStepCleansUp)
{
    struct Row
    {
        const char* name;
        std::function<void()> arm;
        HRESULT expected;
        const char* line;
    };
    const Row rows[] = {
        {"CreateEventW #1", [] { pal::InjectFault("CreateEventW", ERROR_ACCESS_DENIED, 1); },
         HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), "CreateEvent FAILED [dwError=0x00000005]\n"},
        {"CreateEventW #2", [] { pal::InjectFault("CreateEventW", ERROR_ACCESS_DENIED, 2); },
         HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), "CreateEvent FAILED [dwError=0x00000005]\n"},
        {"CoCreateInstance",
         [] { pal::InjectFault("CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG)); },
         REGDB_E_CLASSNOTREG, "CoCreateInstance for IVSSSupport FAILED [hr=0x80040154]\n"},
        {"QueryInterface(ICallFactory)",
         [] { storagesim::SetFault("QueryInterface(ICallFactory)", E_NOINTERFACE, 1); },
         E_NOINTERFACE,
         "**** Tessera COM Exception: source=Tessera.VSSSupport.1, "
         "description=QueryInterface(ICallFactory) failed (injected fault)\n"},
        {"CreateCall", [] { storagesim::SetFault("CreateCall", E_NOINTERFACE, 1); }, E_NOINTERFACE,
         "pCallFactory->CreateCall FAILED [hr=0x80004002]\n"},
        {"QueryInterface(IConnectionPointContainer)",
         [] {
             storagesim::SetFault("QueryInterface(IConnectionPointContainer)", E_NOINTERFACE, 1);
         },
         E_NOINTERFACE,
         "pConnectableObject->QueryInterface for IID_IConnectionPointContainer FAILED "
         "[hr=0x80004002]\n"},
        {"FindConnectionPoint",
         [] { storagesim::SetFault("FindConnectionPoint", CONNECT_E_NOCONNECTION, 1); },
         CONNECT_E_NOCONNECTION, "FindConnectionPoint FAILED [hr=0x80040200]\n"},
        {"Advise", [] { storagesim::SetFault("Advise", CONNECT_E_ADVISELIMIT, 1); },
         CONNECT_E_ADVISELIMIT,
         "Advise FAILED [hr=0x80040201]\n"
         "        m_pSink->Register FAILED [hr=0x80040201]\n"},
        {"OpenEventW #1", [] { pal::InjectFault("OpenEventW", ERROR_FILE_NOT_FOUND, 1); },
         HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), "OpenEvent FAILED [dwError=0x00000002]\n"},
        {"OpenEventW #2", [] { pal::InjectFault("OpenEventW", ERROR_FILE_NOT_FOUND, 2); },
         HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), "OpenEvent FAILED [dwError=0x00000002]\n"},
        {"Begin_CreateSnapShot1",
         [] { storagesim::SetFault("Begin_CreateSnapShot1", RPC_E_SERVERFAULT, 1); },
         RPC_E_SERVERFAULT, "Begin_CreateSnapShot1 FAILED [hr=0x80010105]\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.arm();
        CTesseraHelper helper(1);
        EXPECT_HR(row.expected, Prepare(helper));
        pal::ClearFaults();
        ASSERT_HR(S_OK, storagesim::ClearFaults());
        const std::string text = TakeTraceText();
        EXPECT_TRUE(Contains(text, row.line)) << text;
        EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
        EXPECT_EQ(0u, storagesim::LiveObjectCount());
        // A cleaned-up helper has nothing left to release or to finish.
        EXPECT_HR(S_OK, helper.CreateSnapshot());
    }
    CTesseraHelper sync(0);
    pal::InjectFault("CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG));
    EXPECT_HR(REGDB_E_CLASSNOTREG, Prepare(sync));
    pal::ClearFaults();
    EXPECT_TRUE(Contains(TakeTraceText(), "CoCreateInstance for ISnapShot FAILED [hr=0x80040154]\n"
                                          "    Initialize FAILED [hr=0x80040154]\n"));

    // Allocation failures, task allocator and `new (std::nothrow)` alike, on the preparing
    // thread until the preparation goes through: each failing one cleans up everything. In
    // asynchronous mode the sink's creation is among them.
    TraceSetLevel(TRACE_LEVEL_ERROR);
    for (DWORD dwAsync : {0u, 1u}) {
        SCOPED_TRACE(dwAsync);
        bool fSinkFailed = false;
        HRESULT hr = E_OUTOFMEMORY;
        ULONG nth = 1;
        for (; nth < 100 && FAILED(hr); nth++) {
            CTesseraHelper helper(dwAsync);
            hr = Prepare(helper, 2, u"verdane01", u"E:\\", u"snap", nth);
            fSinkFailed |=
                Contains(TakeTraceText(), "CComObject<CSnapshotEventSink>::CreateInstance FAILED "
                                          "[hr=0x8007000e]\n");
            if (SUCCEEDED(hr)) {
                EXPECT_HR(S_OK, helper.CreateSnapshot());
            }
            EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
            EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::LiveObjectCount() == 0; }));
        }
        EXPECT_HR(S_OK, hr);
        EXPECT_GT(nth, 3u);
        EXPECT_EQ(dwAsync == 1, fSinkFailed);
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
    }
}

} // namespace
