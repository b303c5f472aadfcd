// The asynchronous creation: Begin_ returns at once, a thread of the service delivers the
// events, holds at the hand-off until the sinks answer, cuts at S_OK, abandons on a failure,
// and Finish_ returns the result. Run under ThreadSanitizer.
#include "tests/sim/support/storagefixture.h"

#include "pal/sysinfoapi.h"

#include <thread>

namespace {

using orvtest::storage::CDriveList;
using orvtest::storage::CPairs;
using orvtest::storage::CTestSink;
using orvtest::storage::StorageTest;
using orvtest::storage::TakeError;

constexpr LONG kReady = CTestSink::kReady;
const std::string kFiler = "verdane01";
const std::string kLun = "/vol/vol1/lun1";

class StorageCreationTest : public StorageTest
{
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        m_pSupport = NewVssSupport();
        m_pSink = NewSink();
        m_dwCookie = Advise(m_pSupport, m_pSink);
        m_pCall = NewCall(m_pSupport);
    }
    void TearDown() override
    {
        // Nothing may be left waiting on a sink of this test.
        m_pSink->Answer(E_UNEXPECTED);
        m_pCall.Release();
        m_pSupport.Release();
        EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
        StorageTest::TearDown();
    }

    // Begins the creation of "snap" of E:\ (verdane01:/vol/vol1/lun1) with kind `dwKind`.
    HRESULT Begin(DWORD dwKind = 2, const std::u16string& name = u"snap",
                  const std::u16string& filer = u"verdane01")
    {
        CDriveList drives({u"E:\\"});
        CPairs pairs({{filer, u"/vol/vol1/lun1", u""}});
        // The exclusion text is a copy the caller frees as soon as Begin_ returns.
        std::u16string exclude = u"_exclude";
        return m_pCall->Begin_CreateSnapShot1(drives.Get(), pairs.Get(), name.c_str(), 0, dwKind,
                                              exclude.c_str());
    }

    std::string SnapshotData(const std::string& name, DWORD cb)
    {
        std::string data;
        EXPECT_HR(S_OK, storagesim::ReadSnapshotData(kFiler, kLun, name, 0, cb, &data));
        return data;
    }

    CComPtr<IVSSSupport> m_pSupport;
    CComPtr<CTestSink> m_pSink;
    CComPtr<AsyncIVSSSupport> m_pCall;
    DWORD m_dwCookie = 0;

    // Begins a creation that never reaches its hand-off, and waits for the three events before.
    void BeginStalled(LONG lTimes = storagesim::kEveryCall)
    {
        ASSERT_HR(S_OK, storagesim::SetHandoffFault(storagesim::HandoffFault::kNever, lTimes));
        ASSERT_HR(S_OK, Begin());
        ASSERT_TRUE(orvtest::WaitUntil([this] { return m_pSink->Events().size() == 3; }));
    }
};

TEST_F(StorageCreationTest, EventsThenHoldThenCutAtTheAnswer)
{
    m_pSink->HoldHandoffs();
    ASSERT_HR(S_OK, storagesim::WriteLunData(kFiler, kLun, 0, "written before"));
    ASSERT_HR(S_OK, Begin());
    ASSERT_TRUE(m_pSink->WaitForHandoffs(1));
    EXPECT_EQ((std::vector<LONG>{PROG_POLICY_CHECK, PROG_KVX_SNAPCREATE, PROG_KVX_SNAP_PREPARE,
                                 PROG_HANDOFF}),
              m_pSink->Events());
    EXPECT_EQ("snap", m_pSink->SnapshotName());
    EXPECT_EQ("ORVHOST01", m_pSink->MachineName());
    // Held: nothing is cut yet, data written now is still before the cut, and Finish_ cannot
    // return while the hand-off is unanswered.
    EXPECT_FALSE(HasSnapshot(kFiler, kLun, "snap"));
    ASSERT_HR(S_OK, storagesim::WriteLunData(kFiler, kLun, 0, "written during"));
    std::atomic<bool> fFinished{false};
    HRESULT hrFinish = E_FAIL;
    std::thread finisher([&] {
        hrFinish = m_pCall->Finish_CreateSnapShot1();
        fFinished = true;
    });
    EXPECT_EQ(1u, storagesim::ActiveCreationCount());
    EXPECT_FALSE(fFinished.load());
    m_pSink->Answer(S_OK);
    finisher.join();
    EXPECT_HR(S_OK, hrFinish);
    ASSERT_HR(S_OK, storagesim::WriteLunData(kFiler, kLun, 0, "written after!"));
    EXPECT_EQ("written during", SnapshotData("snap", 14));
    std::string data;
    ASSERT_HR(S_OK, storagesim::ReadLunData(kFiler, kLun, 0, 14, &data));
    EXPECT_EQ("written after!", data);
}

TEST_F(StorageCreationTest, UnexpectedAnswerAbandonsTheCreation)
{
    m_pSink->AnswerHandoffs(E_UNEXPECTED);
    ASSERT_HR(S_OK, Begin());
    EXPECT_HR(TESSERA_E_CREATION_ABANDONED, m_pCall->Finish_CreateSnapShot1());
    auto error = TakeError();
    EXPECT_EQ("Snapshot snap was abandoned by its client", error.description);
    EXPECT_FALSE(HasSnapshot(kFiler, kLun, "snap"));
    // The call object is free for the next creation.
    m_pSink->AnswerHandoffs(S_OK);
    ASSERT_HR(S_OK, Begin());
    EXPECT_HR(S_OK, m_pCall->Finish_CreateSnapShot1());
    EXPECT_TRUE(HasSnapshot(kFiler, kLun, "snap"));
}

TEST_F(StorageCreationTest, HandoffIsDeliveredAsConfigured)
{
    const struct
    {
        storagesim::Handoff handoff;
        std::vector<LONG> handoffEvents;
    } cases[] = {{storagesim::Handoff::kProgress, {PROG_HANDOFF}},
                 {storagesim::Handoff::kReady, {kReady}},
                 {storagesim::Handoff::kBoth, {PROG_HANDOFF, kReady}}};
    m_pSink->AnswerHandoffs(S_OK);
    size_t cEarlier = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.handoff));
        ASSERT_HR(S_OK, storagesim::SetHandoff(c.handoff));
        std::u16string name = u"snap" + orvtest::Wide(std::to_string(cEarlier));
        ASSERT_HR(S_OK, Begin(2, name));
        EXPECT_HR(S_OK, m_pCall->Finish_CreateSnapShot1());
        std::vector<LONG> expected{PROG_POLICY_CHECK, PROG_KVX_SNAPCREATE, PROG_KVX_SNAP_PREPARE};
        expected.insert(expected.end(), c.handoffEvents.begin(), c.handoffEvents.end());
        std::vector<LONG> events = m_pSink->Events();
        EXPECT_EQ(expected, std::vector<LONG>(events.begin() + cEarlier, events.end()));
        EXPECT_TRUE(HasSnapshot(kFiler, kLun, orvtest::Narrow(name)));
        cEarlier = events.size();
    }
}

TEST_F(StorageCreationTest, HandoffTwiceIsDecidedByTheFirstAnswer)
{
    ASSERT_HR(S_OK, storagesim::SetHandoffFault(storagesim::HandoffFault::kTwice, 1));
    m_pSink->HoldHandoffs();
    ASSERT_HR(S_OK, Begin());
    ASSERT_TRUE(m_pSink->WaitForHandoffs(1));
    m_pSink->Answer(S_OK);
    // The snapshot is cut at the first answer, before the second delivery is answered.
    ASSERT_TRUE(m_pSink->WaitForHandoffs(2));
    EXPECT_TRUE(HasSnapshot(kFiler, kLun, "snap"));
    EXPECT_HR(S_OK, m_pCall->Finish_CreateSnapShot1());
    EXPECT_EQ((std::vector<LONG>{PROG_POLICY_CHECK, PROG_KVX_SNAPCREATE, PROG_KVX_SNAP_PREPARE,
                                 PROG_HANDOFF, PROG_HANDOFF}),
              m_pSink->Events());
}

TEST_F(StorageCreationTest, NeverReachingTheHandoffStallsUntilFinish)
{
    BeginStalled(1);
    EXPECT_HR(TESSERA_E_CREATION_STALLED, m_pCall->Finish_CreateSnapShot1());
    EXPECT_EQ((std::vector<LONG>{PROG_POLICY_CHECK, PROG_KVX_SNAPCREATE, PROG_KVX_SNAP_PREPARE}),
              m_pSink->Events());
    EXPECT_FALSE(HasSnapshot(kFiler, kLun, "snap"));
}

TEST_F(StorageCreationTest, StalledCreationEndsWhenItsCallIsReleased)
{
    BeginStalled();
    EXPECT_EQ(1u, storagesim::ActiveCreationCount());
    m_pCall.Release();
    EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
}

TEST_F(StorageCreationTest, DroppedCallIsCancelledAndCutsNothing)
{
    m_pSink->HoldHandoffs();
    ASSERT_HR(S_OK, Begin());
    ASSERT_TRUE(m_pSink->WaitForHandoffs(1));
    // The client gives up on the call while the service holds at the hand-off.
    m_pCall.Release();
    m_pSink->Answer(S_OK);
    EXPECT_TRUE(orvtest::WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
    EXPECT_FALSE(HasSnapshot(kFiler, kLun, "snap"));
}

TEST_F(StorageCreationTest, StalledCreationEndsWhenTheServiceStops)
{
    BeginStalled();
    m_service.Stop();
    EXPECT_EQ(0u, storagesim::ActiveCreationCount());
    // Finish_ on a call object of a stopped service.
    EXPECT_HR(CO_E_OBJNOTCONNECTED, m_pCall->Finish_CreateSnapShot1());
}

TEST_F(StorageCreationTest, FailingCreationFailsAtTheCut)
{
    ASSERT_HR(S_OK, storagesim::SetFault("CreateSnapShot1", E_ACCESSDENIED, 1));
    m_pSink->AnswerHandoffs(S_OK);
    ASSERT_HR(S_OK, Begin());
    EXPECT_HR(E_ACCESSDENIED, m_pCall->Finish_CreateSnapShot1());
    EXPECT_EQ("CreateSnapShot1 failed (injected fault)", TakeError().description);
    EXPECT_EQ(4u, m_pSink->Events().size());
    EXPECT_FALSE(HasSnapshot(kFiler, kLun, "snap"));
}

TEST_F(StorageCreationTest, BeginAndFinishFaults)
{
    ASSERT_HR(S_OK, storagesim::SetFault("Begin_CreateSnapShot1", RPC_E_SERVERFAULT, 1));
    EXPECT_HR(RPC_E_SERVERFAULT, Begin());
    EXPECT_EQ("Begin_CreateSnapShot1 failed (injected fault)", TakeError().description);
    EXPECT_TRUE(m_pSink->Events().empty());
    EXPECT_HR(RPC_E_CALL_COMPLETE, m_pCall->Finish_CreateSnapShot1());
    // A lost reply: the service did its work, the caller sees the failure.
    ASSERT_HR(S_OK, storagesim::SetFault("Finish_CreateSnapShot1", RPC_E_DISCONNECTED, 1));
    m_pSink->AnswerHandoffs(S_OK);
    ASSERT_HR(S_OK, Begin());
    EXPECT_HR(RPC_E_DISCONNECTED, m_pCall->Finish_CreateSnapShot1());
    EXPECT_TRUE(HasSnapshot(kFiler, kLun, "snap"));
}

TEST_F(StorageCreationTest, SecondBeginWhilePendingIsRefused)
{
    m_pSink->HoldHandoffs();
    ASSERT_HR(S_OK, Begin());
    EXPECT_HR(RPC_S_CALLPENDING, Begin(2, u"other"));
    ASSERT_TRUE(m_pSink->WaitForHandoffs(1));
    m_pSink->Answer(S_OK);
    EXPECT_HR(S_OK, m_pCall->Finish_CreateSnapShot1());
    EXPECT_FALSE(HasSnapshot(kFiler, kLun, "other"));
}

TEST_F(StorageCreationTest, CreationThatCannotBeMadeFailsBeforeTheHandoff)
{
    // A backup snapshot on the filer that cannot make one.
    CDriveList drives({u"I:\\"});
    CPairs pairs({{u"verdane02", u"/vol/vol1/lun1", u""}});
    ASSERT_HR(S_OK,
              m_pCall->Begin_CreateSnapShot1(drives.Get(), pairs.Get(), u"b", 0, 4, u"_exclude"));
    EXPECT_HR(TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED, m_pCall->Finish_CreateSnapShot1());
    EXPECT_EQ((std::vector<LONG>{PROG_POLICY_CHECK}), m_pSink->Events());
    // An unknown LUN.
    CPairs unknown({{u"verdane01", u"/vol/vol7/lun1", u""}});
    ASSERT_HR(S_OK,
              m_pCall->Begin_CreateSnapShot1(drives.Get(), unknown.Get(), u"b", 0, 2, u"_exclude"));
    EXPECT_HR(TESSERA_E_LUN_NOT_FOUND, m_pCall->Finish_CreateSnapShot1());
    // Arguments are checked by Begin_ itself.
    EXPECT_HR(E_INVALIDARG,
              m_pCall->Begin_CreateSnapShot1(drives.Get(), pairs.Get(), u"b", 0, 3, u"_exclude"));
    EXPECT_HR(E_POINTER,
              m_pCall->Begin_CreateSnapShot1(drives.Get(), nullptr, u"b", 0, 2, u"_exclude"));
}

TEST_F(StorageCreationTest, BackupSetSnapshotsTheRecoveredClone)
{
    // A target LUN of an earlier snapshot stands for the recovered clone.
    m_pSink->AnswerHandoffs(S_OK);
    ASSERT_HR(S_OK, Begin());
    ASSERT_HR(S_OK, m_pCall->Finish_CreateSnapShot1());
    LUN_LOCATION source{const_cast<LPWSTR>(u"verdane01"), const_cast<LPWSTR>(u"/vol/vol1/lun1")};
    TARGET_LUN_INFO* pInfo = nullptr;
    ASSERT_HR(S_OK, m_pSupport->GetTargetLunInfo(&source, u"snap", 1, 1, &pInfo));
    ASSERT_HR(S_OK, m_pSupport->CreateTargetLun(&source, u"snap", pInfo));
    std::u16string clone = pInfo->lunLocation.lunPath;
    orvtest::storage::FreeTargetLunInfo(pInfo);
    CDriveList drives({u"E:\\"});
    CPairs pairs({{u"verdane01", u"/vol/vol1/lun1", clone}});
    ASSERT_HR(S_OK, m_pCall->Begin_CreateSnapShot1(drives.Get(), pairs.Get(), u"snap_backup", 0, 4,
                                                   u"_exclude"));
    EXPECT_HR(S_OK, m_pCall->Finish_CreateSnapShot1());
    EXPECT_TRUE(HasSnapshot(kFiler, orvtest::Narrow(clone), "snap_backup"));
    EXPECT_FALSE(HasSnapshot(kFiler, kLun, "snap_backup"));
}

TEST_F(StorageCreationTest, EverySinkIsCalledAndAnyFailureAbandons)
{
    auto pSecond = NewSink();
    Advise(m_pSupport, pSecond);
    m_pSink->AnswerHandoffs(S_OK);
    pSecond->AnswerHandoffs(E_UNEXPECTED);
    ASSERT_HR(S_OK, Begin());
    EXPECT_HR(TESSERA_E_CREATION_ABANDONED, m_pCall->Finish_CreateSnapShot1());
    EXPECT_EQ(m_pSink->Events(), pSecond->Events());
    EXPECT_EQ(4u, pSecond->Events().size());
    // Unadvised, the second sink hears no more.
    CComPtr<IConnectionPointContainer> pContainer;
    ASSERT_HR(S_OK, m_pSupport.QueryInterface(&pContainer));
    CComPtr<IConnectionPoint> pPoint;
    ASSERT_HR(S_OK, pContainer->FindConnectionPoint(IID__ISnapShotEvents, &pPoint));
    EXPECT_HR(S_OK, pPoint->Unadvise(m_dwCookie + 1));
    ASSERT_HR(S_OK, Begin());
    EXPECT_HR(S_OK, m_pCall->Finish_CreateSnapShot1());
    EXPECT_EQ(4u, pSecond->Events().size());
    EXPECT_EQ(8u, m_pSink->Events().size());
}

TEST_F(StorageCreationTest, DelayBeforeTheFirstEventRunsOnThePlatformClock)
{
    pal::SetClockScale(1000);
    ASSERT_HR(S_OK, storagesim::SetDelay("CreateSnapShot1", 30000, 1));
    m_pSink->AnswerHandoffs(S_OK);
    DWORD dwStart = GetTickCount();
    ASSERT_HR(S_OK, Begin());
    EXPECT_HR(S_OK, m_pCall->Finish_CreateSnapShot1());
    EXPECT_GE(GetTickCount() - dwStart, 30000u);
}

TEST_F(StorageCreationTest, SynchronousFormWaitsForTheWholeCreation)
{
    m_pSink->AnswerHandoffs(S_OK);
    CDriveList drives({u"E:\\"});
    CPairs pairs({{u"verdane01", u"/vol/vol1/lun1", u""}});
    EXPECT_HR(S_OK,
              m_pSupport->CreateSnapShot1(drives.Get(), pairs.Get(), u"sync", 0, 2, u"_exclude"));
    EXPECT_TRUE(HasSnapshot(kFiler, kLun, "sync"));
    EXPECT_EQ(4u, m_pSink->Events().size());
}

TEST_F(StorageCreationTest, CreationsOfSeveralClientsRunTogether)
{
    // Each client its own object, sink and call; all held at once, then answered.
    constexpr int kClients = 4;
    std::vector<CComPtr<IVSSSupport>> supports;
    std::vector<CComPtr<CTestSink>> sinks;
    std::vector<CComPtr<AsyncIVSSSupport>> calls;
    for (int i = 0; i < kClients; ++i) {
        supports.push_back(NewVssSupport());
        sinks.push_back(NewSink());
        sinks.back()->HoldHandoffs();
        Advise(supports.back(), sinks.back());
        calls.push_back(NewCall(supports.back()));
    }
    std::vector<std::thread> threads;
    std::vector<HRESULT> results(kClients, E_FAIL);
    for (int i = 0; i < kClients; ++i)
        threads.emplace_back([&, i] {
            CDriveList drives({u"F:\\"});
            CPairs pairs({{u"verdane01", u"/vol/vol1/lun2", u""}});
            std::u16string name = u"client" + std::u16string(1, char16_t(u'0' + i));
            HRESULT hr = calls[i]->Begin_CreateSnapShot1(drives.Get(), pairs.Get(), name.c_str(), 0,
                                                         2, u"_exclude");
            if (SUCCEEDED(hr))
                hr = calls[i]->Finish_CreateSnapShot1();
            results[i] = hr;
        });
    for (int i = 0; i < kClients; ++i)
        ASSERT_TRUE(sinks[i]->WaitForHandoffs(1));
    EXPECT_EQ(ULONG(kClients), storagesim::ActiveCreationCount());
    for (int i = 0; i < kClients; ++i)
        sinks[i]->Answer(S_OK);
    for (auto& t : threads)
        t.join();
    for (int i = 0; i < kClients; ++i) {
        EXPECT_HR(S_OK, results[i]);
        EXPECT_TRUE(HasSnapshot(kFiler, "/vol/vol1/lun2", "client" + std::to_string(i)));
    }
}

} // namespace
