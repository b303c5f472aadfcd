// Every method of the simulated service: its success, its failures with their codes and error
// objects, and the state it leaves.
#include "tests/sim/support/storagefixture.h"

#include "pal/sysinfoapi.h"

#include <cstring>

namespace {

using orvtest::storage::CDriveList;
using orvtest::storage::CLocation;
using orvtest::storage::CPairs;
using orvtest::storage::FreeDiskList;
using orvtest::storage::FreeTargetLunInfo;
using orvtest::storage::StorageTest;
using orvtest::storage::TakeError;

class StorageMethodsTest : public StorageTest
{
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        m_pSupport = NewVssSupport();
        ASSERT_HR(S_OK, m_pSupport.QueryInterface(&m_pSnapShot));
    }
    void TearDown() override
    {
        m_pSnapShot.Release();
        m_pSupport.Release();
        StorageTest::TearDown();
    }

    // A snapshot of E:\ (verdane01:/vol/vol1/lun1) made with ISnapShot.
    void SnapshotE(const std::u16string& name)
    {
        CDriveList drives({u"E:\\"});
        ASSERT_HR(S_OK, m_pSnapShot->CreateSnapShot(drives.Get(), name.c_str()));
    }

    void ExpectError(const std::string& description)
    {
        auto error = TakeError();
        EXPECT_TRUE(error.fPresent);
        EXPECT_EQ("Tessera.VSSSupport.1", error.source);
        EXPECT_EQ(description, error.description);
    }

    CComPtr<IVSSSupport> m_pSupport;
    CComPtr<ISnapShot> m_pSnapShot;
};

// ---- EnumVirtualDisks ----

TEST_F(StorageMethodsTest, EnumVirtualDisksListsTheManagedDisks)
{
    VD_INFO_LIST list{};
    ASSERT_HR(S_OK, m_pSupport->EnumVirtualDisks(&list, 0));
    ASSERT_EQ(5u, list.Count);
    const VD_INFO& first = list.Disks[0];
    EXPECT_EQ("verdane01", orvtest::Narrow(first.Filer));
    EXPECT_EQ("/vol/vol1/lun1", orvtest::Narrow(first.FilerPath));
    EXPECT_STREQ("HnLmC0DH4Rdx", first.SerialNumber);
    EXPECT_EQ(0, first.BackedBySnapshot);
    EXPECT_EQ(nullptr, first.SnapshotName);
    EXPECT_EQ(2, first.SCSIPort);
    EXPECT_EQ(0, first.LUN);
    EXPECT_EQ(10240ull * 1024 * 1024, first.Size);
    ASSERT_EQ(1u, first.MountPointCount);
    EXPECT_EQ("E:\\", orvtest::Narrow(first.MountPoint[0]));
    EXPECT_EQ(1u, first.ExtraDword1); // iSCSI
    EXPECT_EQ("ORVHOST01", orvtest::Narrow(first.ExtraString1));
    const VD_INFO& shared = list.Disks[2];
    EXPECT_EQ(1, shared.Shared);
    ASSERT_EQ(2u, shared.MountPointCount);
    EXPECT_EQ("C:\\mnt\\logs\\", orvtest::Narrow(shared.MountPoint[1]));
    const VD_INFO& fc = list.Disks[4];
    EXPECT_EQ("verdane02", orvtest::Narrow(fc.Filer));
    EXPECT_EQ(2u, fc.ExtraDword1); // Fibre Channel
    EXPECT_EQ(1, fc.Readonly);
    // Nothing of the other vendor's disk.
    for (ULONG i = 0; i < list.Count; ++i)
        EXPECT_NE("AC00000000K1", std::string(list.Disks[i].SerialNumber));
    FreeDiskList(&list);
}

TEST_F(StorageMethodsTest, EnumVirtualDisksFailures)
{
    EXPECT_HR(E_POINTER, m_pSupport->EnumVirtualDisks(nullptr, 0));
    ExpectError("The disk list is required");
    VD_INFO_LIST list{7, reinterpret_cast<VD_INFO*>(0x1)};
    EXPECT_HR(E_INVALIDARG, m_pSupport->EnumVirtualDisks(&list, 0x10));
    EXPECT_EQ(0u, list.Count);
    EXPECT_EQ(nullptr, list.Disks);
    ExpectError("Unknown enumeration flags");
}

TEST_F(StorageMethodsTest, EnumVirtualDisksHandsOutAllOrNothingWhenMemoryRunsOut)
{
    // Every allocation of the enumeration in turn: 5 lists, 5 strings per disk and more.
    for (ULONG n = 1;; ++n) {
        VD_INFO_LIST list{};
        pal::FailTaskAllocAt(n);
        HRESULT hr = m_pSupport->EnumVirtualDisks(&list, 0);
        pal::FailTaskAllocAt(0);
        if (hr == S_OK) {
            EXPECT_GT(n, 30u);
            FreeDiskList(&list);
            break;
        }
        ASSERT_HR(E_OUTOFMEMORY, hr) << "allocation " << n;
        EXPECT_EQ(0u, list.Count);
        EXPECT_EQ(nullptr, list.Disks);
        TakeError();
    }
}

TEST_F(StorageMethodsTest, InjectedFaultFailsTheNextCallsOnly)
{
    ASSERT_HR(S_OK, storagesim::SetFault("EnumVirtualDisks", E_ACCESSDENIED, 2));
    VD_INFO_LIST list{};
    EXPECT_HR(E_ACCESSDENIED, m_pSupport->EnumVirtualDisks(&list, 0));
    ExpectError("EnumVirtualDisks failed (injected fault)");
    EXPECT_HR(E_ACCESSDENIED, m_pSupport->EnumVirtualDisks(&list, 0));
    EXPECT_HR(S_OK, m_pSupport->EnumVirtualDisks(&list, 0));
    FreeDiskList(&list);
    // A success leaves no error object behind, not even an earlier call's.
    EXPECT_FALSE(TakeError().fPresent);
}

TEST_F(StorageMethodsTest, InjectedDelayRunsOnThePlatformClock)
{
    pal::SetClockScale(1000);
    ASSERT_HR(S_OK, storagesim::SetDelay("IsUnlockedCloneSupported", 60000, 1));
    BOOLEAN f = 0;
    DWORD dwStart = GetTickCount();
    EXPECT_HR(S_OK, m_pSupport->IsUnlockedCloneSupported(u"verdane01", &f));
    EXPECT_GE(GetTickCount() - dwStart, 60000u);
}

// ---- IsUnlockedCloneSupported ----

TEST_F(StorageMethodsTest, UnlockedCloneSupportIsPerFiler)
{
    BOOLEAN f = 7;
    EXPECT_HR(S_OK, m_pSupport->IsUnlockedCloneSupported(u"verdane01", &f));
    EXPECT_EQ(1, f);
    EXPECT_HR(S_OK, m_pSupport->IsUnlockedCloneSupported(u"VERDANE02", &f));
    EXPECT_EQ(0, f);
    f = 7;
    EXPECT_HR(TESSERA_E_FILER_NOT_FOUND, m_pSupport->IsUnlockedCloneSupported(u"nas9", &f));
    EXPECT_EQ(7, f);
    ExpectError("Filer nas9 is not known");
    EXPECT_HR(E_POINTER, m_pSupport->IsUnlockedCloneSupported(nullptr, &f));
}

// ---- Synchronous creation ----

TEST_F(StorageMethodsTest, SyncCreationCutsAtOnce)
{
    ASSERT_HR(S_OK, storagesim::WriteLunData("verdane01", "/vol/vol1/lun1", 0, "before"));
    SnapshotE(u"snap1");
    ASSERT_HR(S_OK, storagesim::WriteLunData("verdane01", "/vol/vol1/lun1", 0, "after!"));
    std::string data;
    ASSERT_HR(S_OK,
              storagesim::ReadSnapshotData("verdane01", "/vol/vol1/lun1", "snap1", 0, 6, &data));
    EXPECT_EQ("before", data);
    // IVSSSupport's slot 3 is the same creation.
    CDriveList drives({u"F:\\"});
    EXPECT_HR(S_OK, m_pSupport->CreateSnapShot(drives.Get(), u"snap1"));
    EXPECT_TRUE(HasSnapshot("verdane01", "/vol/vol1/lun2", "snap1"));
}

TEST_F(StorageMethodsTest, SyncCreationFailures)
{
    CDriveList onOldFiler({u"I:\\"});
    EXPECT_HR(TESSERA_E_BACKUP_SNAPSHOT_UNSUPPORTED,
              m_pSnapShot->CreateSnapShot(onOldFiler.Get(), u"{set}_backup"));
    ExpectError("Filer verdane02 cannot make backup snapshots (Verdane version or tandem-clone)");
    // The same filer makes ordinary snapshots, and the other one backup snapshots.
    EXPECT_HR(S_OK, m_pSnapShot->CreateSnapShot(onOldFiler.Get(), u"{set}"));
    CDriveList onNewFiler({u"E:\\"});
    EXPECT_HR(S_OK, m_pSnapShot->CreateSnapShot(onNewFiler.Get(), u"{set}_backup"));
    EXPECT_HR(TESSERA_E_SNAPSHOT_EXISTS,
              m_pSnapShot->CreateSnapShot(onNewFiler.Get(), u"{set}_backup"));
    ExpectError("Snapshot {set}_backup of LUN /vol/vol1/lun1 already exists");
    CDriveList unknown({u"E:\\", u"Z:\\"});
    EXPECT_HR(TESSERA_E_DRIVE_NOT_FOUND, m_pSnapShot->CreateSnapShot(unknown.Get(), u"other"));
    ExpectError("Drive Z:\\ is not on a LUN of a managed filer");
    // All or nothing: E:\ got no snapshot "other".
    EXPECT_FALSE(HasSnapshot("verdane01", "/vol/vol1/lun1", "other"));
    CDriveList none({});
    EXPECT_HR(E_INVALIDARG, m_pSnapShot->CreateSnapShot(none.Get(), u"other"));
    EXPECT_HR(E_POINTER, m_pSnapShot->CreateSnapShot(nullptr, u"other"));
    EXPECT_HR(E_POINTER, m_pSnapShot->CreateSnapShot(onNewFiler.Get(), nullptr));
}

// ---- Target LUNs ----

TEST_F(StorageMethodsTest, TargetLunIdentityIsAssignedOnceAndCreatedOnRequest)
{
    SnapshotE(u"snap1");
    CLocation source(u"verdane01", u"/vol/vol1/lun1");
    TARGET_LUN_INFO* pInfo = reinterpret_cast<TARGET_LUN_INFO*>(0x1);
    // Without assignment there is nothing to answer yet.
    EXPECT_HR(TESSERA_E_NO_TARGET_LUN,
              m_pSupport->GetTargetLunInfo(source.Get(), u"snap1", 0, 0, &pInfo));
    EXPECT_EQ(nullptr, pInfo);
    ASSERT_HR(S_OK, m_pSupport->GetTargetLunInfo(source.Get(), u"snap1", 1, 0, &pInfo));
    ASSERT_NE(nullptr, pInfo);
    EXPECT_EQ("verdane01", orvtest::Narrow(pInfo->lunLocation.filerName));
    std::string path = orvtest::Narrow(pInfo->lunLocation.lunPath);
    EXPECT_EQ(0u, path.rfind("/vol/vol1/lun1_ss", 0)) << path;
    EXPECT_EQ(12u, std::char_traits<char16_t>::length(pInfo->serialNumber));
    EXPECT_EQ("ORVANE", orvtest::Narrow(pInfo->vendorId));
    EXPECT_EQ("LUN", orvtest::Narrow(pInfo->productId));
    EXPECT_EQ("9.1", orvtest::Narrow(pInfo->productRevision));
    TARGET_LUN_INFO* pAgain = nullptr;
    ASSERT_HR(S_OK, m_pSupport->GetTargetLunInfo(source.Get(), u"snap1", 1, 0, &pAgain));
    EXPECT_EQ(std::u16string(pInfo->serialNumber), std::u16string(pAgain->serialNumber));
    FreeTargetLunInfo(pAgain);

    ASSERT_HR(S_OK, m_pSupport->CreateTargetLun(source.Get(), u"snap1", pInfo));
    // Now it exists, and is answered without assignment.
    ASSERT_HR(S_OK, m_pSupport->GetTargetLunInfo(source.Get(), u"snap1", 0, 0, &pAgain));
    EXPECT_EQ(std::u16string(pInfo->lunLocation.lunPath),
              std::u16string(pAgain->lunLocation.lunPath));
    FreeTargetLunInfo(pAgain);
    // Mapped to the host as a disk backed by the snapshot, read-only, without mount point.
    VD_INFO_LIST list{};
    ASSERT_HR(S_OK, m_pSupport->EnumVirtualDisks(&list, 0));
    ASSERT_EQ(6u, list.Count);
    const VD_INFO& target = list.Disks[5];
    EXPECT_EQ(path, orvtest::Narrow(target.FilerPath));
    EXPECT_EQ(1, target.BackedBySnapshot);
    EXPECT_EQ("snap1", orvtest::Narrow(target.SnapshotName));
    EXPECT_EQ(1, target.Readonly);
    EXPECT_EQ(0u, target.MountPointCount);
    EXPECT_EQ(2, target.SCSIPort);
    EXPECT_EQ(3, target.LUN);
    FreeDiskList(&list);
    ASSERT_HR(S_OK, m_pSupport->EnumVirtualDisks(&list, 1));
    EXPECT_EQ(5u, list.Count);
    FreeDiskList(&list);
    // A second creation of the same LUN fails.
    EXPECT_HR(TESSERA_E_TARGET_LUN_EXISTS,
              m_pSupport->CreateTargetLun(source.Get(), u"snap1", pInfo));
    ExpectError("LUN " + path + " already exists on filer verdane01");
    FreeTargetLunInfo(pInfo);
}

TEST_F(StorageMethodsTest, TargetLunLookupFailures)
{
    SnapshotE(u"snap1");
    TARGET_LUN_INFO* pInfo = reinterpret_cast<TARGET_LUN_INFO*>(0x1);
    CLocation unknownFiler(u"nas9", u"/vol/vol1/lun1");
    EXPECT_HR(TESSERA_E_FILER_NOT_FOUND,
              m_pSupport->GetTargetLunInfo(unknownFiler.Get(), u"snap1", 1, 0, &pInfo));
    EXPECT_EQ(nullptr, pInfo);
    CLocation unknownLun(u"verdane01", u"/vol/vol1/lun9");
    EXPECT_HR(TESSERA_E_LUN_NOT_FOUND,
              m_pSupport->GetTargetLunInfo(unknownLun.Get(), u"snap1", 1, 0, &pInfo));
    ExpectError("LUN /vol/vol1/lun9 not found on filer verdane01");
    CLocation source(u"verdane01", u"/vol/vol1/lun1");
    EXPECT_HR(TESSERA_E_SNAPSHOT_NOT_FOUND,
              m_pSupport->GetTargetLunInfo(source.Get(), u"snap2", 1, 0, &pInfo));
    ExpectError("Snapshot snap2 of LUN /vol/vol1/lun1 on filer verdane01 not found");
    EXPECT_EQ(nullptr, pInfo);
    EXPECT_HR(E_POINTER, m_pSupport->GetTargetLunInfo(source.Get(), u"snap1", 1, 0, nullptr));
    EXPECT_HR(E_POINTER, m_pSupport->GetTargetLunInfo(nullptr, u"snap1", 1, 0, &pInfo));
    // No identity was assigned by the failures.
    EXPECT_TRUE(State().snapshots[0].targetPath.empty());
}

TEST_F(StorageMethodsTest, CreateTargetLunFailures)
{
    SnapshotE(u"snap1");
    CLocation source(u"verdane01", u"/vol/vol1/lun1");
    std::u16string filer = u"verdane01", path = u"/vol/vol1/new", serial = u"NEWSERIAL001";
    TARGET_LUN_INFO info{{filer.data(), path.data()}, serial.data(), nullptr, nullptr, nullptr};
    EXPECT_HR(TESSERA_E_SNAPSHOT_NOT_FOUND,
              m_pSupport->CreateTargetLun(source.Get(), u"snap9", &info));
    std::u16string otherFiler = u"verdane02";
    TARGET_LUN_INFO elsewhere = info;
    elsewhere.lunLocation.filerName = otherFiler.data();
    EXPECT_HR(E_INVALIDARG, m_pSupport->CreateTargetLun(source.Get(), u"snap1", &elsewhere));
    TARGET_LUN_INFO noSerial = info;
    noSerial.serialNumber = nullptr;
    EXPECT_HR(E_INVALIDARG, m_pSupport->CreateTargetLun(source.Get(), u"snap1", &noSerial));
    EXPECT_HR(E_POINTER, m_pSupport->CreateTargetLun(source.Get(), u"snap1", nullptr));
    // An existing source LUN's path cannot be taken.
    std::u16string taken = u"/vol/vol1/lun2";
    TARGET_LUN_INFO clash = info;
    clash.lunLocation.lunPath = taken.data();
    EXPECT_HR(TESSERA_E_TARGET_LUN_EXISTS,
              m_pSupport->CreateTargetLun(source.Get(), u"snap1", &clash));
    EXPECT_EQ(5u, State().luns.size());
    // A name the client chose itself is accepted, with the source's identity strings.
    ASSERT_HR(S_OK, m_pSupport->CreateTargetLun(source.Get(), u"snap1", &info));
    auto view = State();
    ASSERT_EQ(6u, view.luns.size());
    EXPECT_EQ("/vol/vol1/new", view.luns[5].path);
    EXPECT_EQ("NEWSERIAL001", view.luns[5].serial);
    EXPECT_EQ("ORVANE", view.luns[5].vendor);
    EXPECT_EQ("snap1", view.luns[5].snapshot);
}

TEST_F(StorageMethodsTest, WritableTargetLunExposesTheSnapshotsDataUntilDeleted)
{
    ASSERT_HR(S_OK, storagesim::WriteLunData("verdane01", "/vol/vol1/lun1", 10, "at the cut"));
    SnapshotE(u"snap1");
    ASSERT_HR(S_OK, storagesim::WriteLunData("verdane01", "/vol/vol1/lun1", 10, "later data"));
    CLocation source(u"verdane01", u"/vol/vol1/lun1");
    TARGET_LUN_INFO* pInfo = nullptr;
    ASSERT_HR(S_OK, m_pSupport->GetTargetLunInfo(source.Get(), u"snap1", 1, 1, &pInfo));
    ASSERT_HR(S_OK, m_pSupport->CreateTargetLun(source.Get(), u"snap1", pInfo));
    std::string data;
    ASSERT_HR(S_OK, storagesim::ReadLunData(
                        "verdane01", orvtest::Narrow(pInfo->lunLocation.lunPath), 10, 10, &data));
    EXPECT_EQ("at the cut", data);
    // Asked as writable (a recovery), the target LUN is mapped read-write.
    ASSERT_EQ(7u, State().disks.size());
    EXPECT_FALSE(State().disks[6].fReadonly);
    // The snapshot is busy while its target LUN exists.
    EXPECT_HR(TESSERA_E_SNAPSHOT_BUSY, m_pSupport->DeleteSnapShot(source.Get(), u"snap1"));
    EXPECT_TRUE(HasSnapshot("verdane01", "/vol/vol1/lun1", "snap1"));
    // Only target LUNs are deleted.
    EXPECT_HR(E_INVALIDARG, m_pSupport->DeleteTargetLun(source.Get()));
    EXPECT_EQ(6u, State().luns.size());
    CLocation target(u"verdane01", pInfo->lunLocation.lunPath);
    ASSERT_HR(S_OK, m_pSupport->DeleteTargetLun(target.Get()));
    auto view = State();
    EXPECT_EQ(5u, view.luns.size());
    EXPECT_EQ(6u, view.disks.size());
    EXPECT_HR(TESSERA_E_LUN_NOT_FOUND, m_pSupport->DeleteTargetLun(target.Get()));
    // Its identity is no longer confirmed without assignment.
    TARGET_LUN_INFO* pAgain = nullptr;
    EXPECT_HR(TESSERA_E_NO_TARGET_LUN,
              m_pSupport->GetTargetLunInfo(source.Get(), u"snap1", 0, 0, &pAgain));
    ASSERT_HR(S_OK, m_pSupport->DeleteSnapShot(source.Get(), u"snap1"));
    EXPECT_FALSE(HasSnapshot("verdane01", "/vol/vol1/lun1", "snap1"));
    EXPECT_HR(TESSERA_E_SNAPSHOT_NOT_FOUND, m_pSupport->DeleteSnapShot(source.Get(), u"snap1"));
    EXPECT_HR(E_POINTER, m_pSupport->DeleteSnapShot(source.Get(), nullptr));
    EXPECT_HR(E_POINTER, m_pSupport->DeleteTargetLun(nullptr));
    FreeTargetLunInfo(pInfo);
}

// ---- SetDatasetAttrib ----

TEST_F(StorageMethodsTest, DatasetTagIsRecordedAndFailuresRecordNothing)
{
    CDriveList unknown({u"E:\\", u"K:\\"});
    EXPECT_HR(TESSERA_E_DRIVE_NOT_FOUND, m_pSupport->SetDatasetAttrib(u"{set}", unknown.Get()));
    ExpectError("Drive K:\\ is not on a LUN of a managed filer");
    CDriveList none({});
    EXPECT_HR(E_INVALIDARG, m_pSupport->SetDatasetAttrib(u"{set}", none.Get()));
    CDriveList drives({u"E:\\", u"I:\\"});
    EXPECT_HR(E_INVALIDARG, m_pSupport->SetDatasetAttrib(u"", drives.Get()));
    EXPECT_HR(E_POINTER, m_pSupport->SetDatasetAttrib(nullptr, drives.Get()));
    EXPECT_HR(E_POINTER, m_pSupport->SetDatasetAttrib(u"{set}", nullptr));
    EXPECT_TRUE(State().datasets.empty());

    ASSERT_HR(S_OK, m_pSupport->SetDatasetAttrib(u"{set}", drives.Get()));
    auto view = State();
    ASSERT_EQ(2u, view.datasets.size());
    EXPECT_EQ("{set}", view.datasets[0].tag);
    EXPECT_EQ("E:\\", view.datasets[0].drive);
    EXPECT_EQ("I:\\", view.datasets[1].drive);
}

// ---- The call factory and the asynchronous forms of the quick methods ----

TEST_F(StorageMethodsTest, CallFactoryMakesOnlyTheAsynchronousForm)
{
    CComPtr<ICallFactory> pFactory;
    ASSERT_HR(S_OK, m_pSupport.QueryInterface(&pFactory));
    IUnknown* pUnk = reinterpret_cast<IUnknown*>(0x1);
    EXPECT_HR(E_NOINTERFACE, pFactory->CreateCall(IID_IVSSSupport, nullptr, IID_IUnknown, &pUnk));
    EXPECT_EQ(nullptr, pUnk);
    EXPECT_HR(CLASS_E_NOAGGREGATION,
              pFactory->CreateCall(IID_AsyncIVSSSupport, m_pSupport, IID_IUnknown, &pUnk));
    EXPECT_HR(E_NOINTERFACE,
              pFactory->CreateCall(IID_AsyncIVSSSupport, nullptr, IID_IVSSSupport, &pUnk));
    ASSERT_HR(S_OK, storagesim::SetFault("CreateCall", E_OUTOFMEMORY, 1));
    EXPECT_HR(E_OUTOFMEMORY,
              pFactory->CreateCall(IID_AsyncIVSSSupport, nullptr, IID_IUnknown, &pUnk));
    EXPECT_EQ(nullptr, pUnk);
    ASSERT_HR(S_OK, pFactory->CreateCall(IID_AsyncIVSSSupport, nullptr, IID_IUnknown, &pUnk));
    pUnk->Release();
}

TEST_F(StorageMethodsTest, AsyncFormOfQuickMethodsFinishesWithTheirResults)
{
    CComPtr<AsyncIVSSSupport> pCall = NewCall(m_pSupport);
    ASSERT_HR(S_OK, pCall->Begin_EnumVirtualDisks(0));
    VD_INFO_LIST list{};
    ASSERT_HR(S_OK, pCall->Finish_EnumVirtualDisks(&list));
    EXPECT_EQ(5u, list.Count);
    FreeDiskList(&list);
    // The call object is reused for a failing call: Begin_ succeeds, Finish_ fails with the
    // method's code and leaves its error object.
    ASSERT_HR(S_OK, pCall->Begin_IsUnlockedCloneSupported(u"nas9"));
    BOOLEAN f = 7;
    EXPECT_HR(TESSERA_E_FILER_NOT_FOUND, pCall->Finish_IsUnlockedCloneSupported(&f));
    EXPECT_EQ(7, f);
    ExpectError("Filer nas9 is not known");
    ASSERT_HR(S_OK, pCall->Begin_IsUnlockedCloneSupported(u"verdane01"));
    EXPECT_HR(S_OK, pCall->Finish_IsUnlockedCloneSupported(&f));
    EXPECT_EQ(1, f);
    SnapshotE(u"snap1");
    CLocation source(u"verdane01", u"/vol/vol1/lun1");
    ASSERT_HR(S_OK, pCall->Begin_GetTargetLunInfo(source.Get(), u"snap1", 1, 0));
    TARGET_LUN_INFO* pInfo = nullptr;
    ASSERT_HR(S_OK, pCall->Finish_GetTargetLunInfo(&pInfo));
    ASSERT_NE(nullptr, pInfo);
    ASSERT_HR(S_OK, pCall->Begin_CreateTargetLun(source.Get(), u"snap1", pInfo));
    EXPECT_HR(S_OK, pCall->Finish_CreateTargetLun());
    CLocation target(u"verdane01", pInfo->lunLocation.lunPath);
    ASSERT_HR(S_OK, pCall->Begin_DeleteTargetLun(target.Get()));
    EXPECT_HR(S_OK, pCall->Finish_DeleteTargetLun());
    ASSERT_HR(S_OK, pCall->Begin_DeleteSnapShot(source.Get(), u"snap1"));
    EXPECT_HR(S_OK, pCall->Finish_DeleteSnapShot());
    CDriveList drives({u"F:\\"});
    ASSERT_HR(S_OK, pCall->Begin_SetDatasetAttrib(u"tag", drives.Get()));
    EXPECT_HR(S_OK, pCall->Finish_SetDatasetAttrib());
    ASSERT_HR(S_OK, pCall->Begin_CreateSnapShot(drives.Get(), u"snap2"));
    EXPECT_HR(S_OK, pCall->Finish_CreateSnapShot());
    EXPECT_TRUE(HasSnapshot("verdane01", "/vol/vol1/lun2", "snap2"));
    FreeTargetLunInfo(pInfo);
}

TEST_F(StorageMethodsTest, CallObjectTakesOneCallAtATime)
{
    CComPtr<AsyncIVSSSupport> pCall = NewCall(m_pSupport);
    EXPECT_HR(RPC_E_CALL_COMPLETE, pCall->Finish_EnumVirtualDisks(nullptr));
    ASSERT_HR(S_OK, pCall->Begin_EnumVirtualDisks(0));
    EXPECT_HR(RPC_S_CALLPENDING, pCall->Begin_IsUnlockedCloneSupported(u"verdane01"));
    // Finishing another method than the pending one is refused too.
    EXPECT_HR(RPC_E_CALL_COMPLETE, pCall->Finish_IsUnlockedCloneSupported(nullptr));
    VD_INFO_LIST list{};
    ASSERT_HR(S_OK, pCall->Finish_EnumVirtualDisks(&list));
    FreeDiskList(&list);
    EXPECT_HR(RPC_E_CALL_COMPLETE, pCall->Finish_EnumVirtualDisks(&list));
    // Released with a result pending: the result is freed with the call object.
    ASSERT_HR(S_OK, pCall->Begin_EnumVirtualDisks(0));
}

} // namespace
