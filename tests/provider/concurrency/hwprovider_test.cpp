// The provider object driven only through its COM interfaces, as VSS drives it, with the
// simulated storage service behind the core: the codes VSS receives, the real codes in the
// trace, the events, and the storage state after each step.
#include "diag/config.h"
#include "diag/trace.h"
#include "provider/hwprovider.h"
#include "res/orvmsg.h"
#include "sim/storage/storagesim.h"
#include "store/vdcache.h"
#include "tests/pal/eventlog/eventlog_testing.h"
#include "tests/support/lunbuilder.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include "pal/atlbase.h"
#include "pal/combaseapi.h"
#include "pal/interlockedapi.h"
#include "pal/palcontrol.h"
#include "pal/regkey.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

namespace {

using namespace orvtest;

constexpr GUID kSet = {0x5e7a11d0, 0x1111, 0x4a4a, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr GUID kOther = {0x5e7a11d0, 0x2222, 0x4a4a, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr char kLunE[] = "HnLmC0DH4Rdx"; // verdane01:/vol/vol1/lun1, E:
constexpr char kLunF[] = "HnLmC0DH4Rdy"; // verdane01:/vol/vol1/lun2, F:

// A source LUN as VSS describes it: identity strings, device id descriptor, iSCSI bus, one
// interconnect with address and port.
CLunBuilder SourceLun(const char* pszSerial)
{
    return CLunBuilder::OrvaneLun(pszSerial).ProductRevision("9.1");
}

// A destination record to be filled. GetTargetLuns zeroes its identifier count and keeps the
// identifier array, so a record that had identifiers would lose their bytes to whoever frees it
// by its counts: this one has none.
CLunBuilder TargetShell(const char* pszSerial)
{
    return CLunBuilder().VendorId("ORVANE").ProductId("LUN").ProductRevision("9.1").SerialNumber(
        pszSerial);
}

class HwProviderTest : public PalTest
{
public:
    void SetUp() override
    {
        PalTest::SetUp();
        CConfig::ResetForTest();
        // As the process entry does before VSS can load the provider.
        ASSERT_HR(S_OK, CConfig::Initialize());
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_HR(S_OK, m_service.Start());
        COrvaneHardwareProvider::sm_osVersion.dwOSVersionInfoSize = 0; // detect again
        COrvaneHardwareProvider::sm_fHyperVRoleEnabled = FALSE;
        COrvaneHardwareProvider::sm_szTesseraVersion[0] = 0;
        ASSERT_TRUE(COrvaneHardwareProvider::InitializeClass());
        NewObject();
        TraceSetLevel(TRACE_LEVEL_INFO);
    }
    void TearDown() override
    {
        if (m_set)
            m_set->AbortSnapshots(kSet);
        m_hw.Release();
        m_set.Release();
        m_load.Release();
        COrvaneHardwareProvider::UninitializeClass();
        EXPECT_TRUE(WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
        SetVDCacheFalse();
        m_service.Stop();
        CoUninitialize();
        CConfig::Terminate();
        CConfig::ResetForTest();
        PalTest::TearDown();
    }
    // A new object from the class factory, as COM makes it for VSS.
    void NewObject()
    {
        m_hw.Release();
        m_set.Release();
        m_load.Release();
        CComPtr<IClassFactory> factory;
        ASSERT_HR(S_OK, CComClassFactoryT<COrvaneHardwareProvider>::Create(&factory));
        ASSERT_HR(S_OK, factory->CreateInstance(nullptr, IID_IVssHardwareSnapshotProviderEx,
                                                reinterpret_cast<void**>(&m_hw)));
        ASSERT_HR(S_OK, m_hw->QueryInterface(IID_IVssProviderCreateSnapshotSet,
                                             reinterpret_cast<void**>(&m_set)));
        ASSERT_HR(S_OK, m_hw->QueryInterface(IID_IVssProviderNotifications,
                                             reinterpret_cast<void**>(&m_load)));
    }
    // The events since the last call: "id strings... data", one line each.
    std::string TakeEvents()
    {
        std::string text;
        auto records = eventlog::ReadAll();
        for (size_t i = m_cEvents; i < records.size(); ++i) {
            text += HexCode(records[i].dwEventId);
            for (const auto& s : records[i].strings)
                text += " " + Narrow(s);
            if (records[i].data.size() == 4) {
                DWORD dw;
                std::memcpy(&dw, records[i].data.data(), 4);
                text += " data " + HexCode(dw);
            }
            text += "\n";
        }
        m_cEvents = records.size();
        return text;
    }
    HRESULT Begin(const char* pszSerial, const GUID& snapshot, LONG lContext = 0)
    {
        CLunRecord lun(SourceLun(pszSerial));
        WCHAR szDevice[] = W("\\\\.\\PhysicalDrive1");
        VSS_PWSZ devices[] = {szDevice};
        return m_hw->BeginPrepareSnapshot(kSet, snapshot, lContext, 1, devices, &lun.Get());
    }
    static storagesim::StateView Storage()
    {
        storagesim::StateView view;
        EXPECT_HR(S_OK, storagesim::ReadState(&view));
        return view;
    }

    storagesim::CStorageService m_service;
    CComPtr<IVssHardwareSnapshotProviderEx> m_hw;
    CComPtr<IVssProviderCreateSnapshotSet> m_set;
    CComPtr<IVssProviderNotifications> m_load;
    size_t m_cEvents = 0;
};

TEST_F(HwProviderTest, AnswersExactlyItsInterfaces)
{
    const std::pair<IID, HRESULT> rows[] = {
        {IID_IUnknown, S_OK},
        {IID_IOrvaneHardwareProvider, S_OK},
        {IID_IVssHardwareSnapshotProvider, S_OK},
        {IID_IVssHardwareSnapshotProviderEx, S_OK},
        {IID_IVssProviderNotifications, S_OK},
        {IID_IVssProviderCreateSnapshotSet, S_OK},
        {IID_IClassFactory, E_NOINTERFACE},
        {IID_IErrorInfo, E_NOINTERFACE},
    };
    for (const auto& [iid, hr] : rows) {
        CComPtr<IUnknown> p;
        EXPECT_HR(hr, m_hw->QueryInterface(iid, reinterpret_cast<void**>(&p)));
    }
    // The two hardware interfaces are one part of the object.
    CComPtr<IUnknown> base;
    ASSERT_HR(S_OK, m_hw->QueryInterface(IID_IVssHardwareSnapshotProvider,
                                         reinterpret_cast<void**>(&base)));
    EXPECT_EQ(static_cast<void*>(base.p), static_cast<void*>(m_hw.p));
    // The provider's own interface: its one method accepts anything and keeps nothing.
    CComPtr<IOrvaneHardwareProvider> own;
    ASSERT_HR(S_OK,
              m_hw->QueryInterface(IID_IOrvaneHardwareProvider, reinterpret_cast<void**>(&own)));
    GUID id = kSet;
    EXPECT_HR(S_OK, own->SetInternalSnapshotName(&id, nullptr));
    EXPECT_HR(S_OK, own->SetInternalSnapshotName(nullptr, nullptr));
}

// The storage service's version decides whether the provider loads; the comparison is
// textual, so 10.0.0.0 sorts before 3.2.0.0.
TEST_F(HwProviderTest, VersionRule)
{
    const std::string tooLong(130, '4');
    const std::pair<std::string, bool> rows[] = {
        {tooLong, false},  {"3.2.0.0", true},  {"3.3", true},
        {"4.0.0.1", true}, {"3.1.9.9", false}, {"10.0.0.0", false},
    };
    std::string lastRead;
    for (const auto& [version, fLoads] : rows) {
        SCOPED_TRACE(version);
        CRegKey key;
        ASSERT_EQ(0, key.Create(HKEY_LOCAL_MACHINE, W("Software\\Halvern\\Tessera")));
        ASSERT_EQ(0, key.SetStringValue(W("ProductVersion"), Wide(version).c_str()));
        NewObject();
        TakeEvents();
        EXPECT_HR(fLoads ? S_OK : VSS_E_PROVIDER_VETO, m_load->OnLoad(nullptr));
        if (version != tooLong)
            lastRead = version;
        EXPECT_EQ(fLoads ? "0x40041000\n" : "0xC004110D " + lastRead + "\n", TakeEvents());
    }
}

// Auto-recovery needs an x64 host of version 6 or later whose Hyper-V role is enabled, as the
// storage service reports it; the detection runs once a process.
TEST_F(HwProviderTest, AutoRecoveryDetection)
{
    struct Row
    {
        WORD wArchitecture;
        DWORD dwMajor;
        DWORD dwVersionError;
        bool fRole;
        BOOL fExpected;
        const char* line;
        bool fRaise = false; // the query raises a COM error
    } rows[] = {
        {9, 6, 0, true, TRUE, "Hyper-V Role is enabled\n"},
        {9, 6, 0, false, FALSE,
         "Hyper-V Role is NOT enabled. Auto-recovery will not be supported\n"},
        {0, 10, 0, true, FALSE,
         "Hyper-V Role is NOT enabled. Auto-recovery will not be supported\n"},
        {9, 5, 0, true, FALSE,
         "Hyper-V Role is NOT enabled. Auto-recovery will not be supported\n"},
        {9, 10, ERROR_ACCESS_DENIED, true, FALSE, "GetVersionEx returned error: -2147024891"},
        // The query raising a COM error: traced with its description, and no role.
        {9, 10, 0, true, FALSE,
         "Exception occured during c.pHyperVSupport->IsHyperVRoleEnabled. Error Description: "
         "IsHyperVRoleEnabled raised a COM error (injected fault)\n",
         true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        COrvaneHardwareProvider::sm_osVersion.dwOSVersionInfoSize = 0;
        COrvaneHardwareProvider::sm_fHyperVRoleEnabled = FALSE;
        pal::HostProfile profile = pal::GetHostProfile();
        profile.wProcessorArchitecture = row.wArchitecture;
        profile.dwMajorVersion = row.dwMajor;
        profile.dwGetVersionExError = row.dwVersionError;
        pal::SetHostProfile(profile);
        ASSERT_HR(S_OK, storagesim::SetHyperV(true, row.fRole));
        if (row.fRaise) {
            ASSERT_HR(S_OK, storagesim::SetRaise("IsHyperVRoleEnabled", E_ACCESSDENIED, 1));
        }
        TakeTraceText();
        EXPECT_EQ(row.fExpected, IsAutoRecoverySupported());
        EXPECT_NE(std::string::npos, TakeTraceText().find(row.line));
        // Cached: the service is not asked again.
        ASSERT_HR(S_OK, storagesim::SetHyperV(true, !row.fRole));
        EXPECT_EQ(row.fExpected, IsAutoRecoverySupported());
    }
}

// The recovery attribute of each snapshot, from the VSS context, the host and the LUN's filer.
TEST_F(HwProviderTest, RecoveryAttributeFromTheContext)
{
    constexpr LONG T = VSS_VOLSNAP_ATTR_TRANSPORTABLE, A = VSS_VOLSNAP_ATTR_AUTORECOVER,
                   X = VSS_VOLSNAP_ATTR_TXF_RECOVERY;
    struct Row
    {
        LONG lContext;
        bool fRole, fTxf;
        const char* serial;
        const char* result; // the attribute added, or the events of a refusal
    } rows[] = {
        {T | A, true, false, kLunE, "eSnapshotAttr=1\n"},
        {A, true, false, kLunE, "eSnapshotAttr=0\n"},
        {A, true, false, "Q7vTk2Pw9sLa",
         "0xC004110E data 0x8004231B\n0xC0041106 data 0x8004231B\n"},
        {T | A, false, false, kLunE, "0xC004110E data 0x8004231B\n0xC0041106 data 0x8004231B\n"},
        {T | X, true, false, kLunE, "eSnapshotAttr=0\n"},
        {T | X, true, true, kLunE, "eSnapshotAttr=2\n"},
        {T | X, true, true, "Q7vTk2Pw9sLa", "eSnapshotAttr=0\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.lContext << " " << row.serial);
        COrvaneHardwareProvider::sm_osVersion.dwOSVersionInfoSize = 0;
        COrvaneHardwareProvider::sm_fHyperVRoleEnabled = FALSE;
        ASSERT_HR(S_OK, storagesim::SetHyperV(true, row.fRole));
        WriteULongNoFence(&CConfig::sm_fTxfRecoveryEnabled, row.fTxf);
        NewObject();
        ASSERT_HR(S_OK, m_load->OnLoad(nullptr));
        TakeEvents();
        TakeTraceText();
        const bool fAdded = *row.result == 'e';
        EXPECT_HR(fAdded ? S_OK : VSS_E_PROVIDER_VETO, Begin(row.serial, kSet, row.lContext));
        if (fAdded)
            EXPECT_NE(std::string::npos, TakeTraceText().find(row.result));
        else
            EXPECT_EQ(row.result, TakeEvents());
        m_set->AbortSnapshots(kSet);
    }
}

// A whole set through the interfaces, on data.
TEST_F(HwProviderTest, WholeSetOnData)
{
    ASSERT_HR(S_OK, m_load->OnLoad(nullptr));
    CLunRecord lunE(SourceLun(kLunE));
    WCHAR szDevice[] = W("\\\\.\\PhysicalDrive1");
    VSS_PWSZ devices[] = {szDevice};
    BOOL fSupported = FALSE;
    ASSERT_HR(S_OK, m_hw->AreLunsSupported(1, 0, devices, &lunE.Get(), &fSupported));
    EXPECT_TRUE(fSupported);
    EXPECT_EQ(VDSBusTypeScsi, lunE->m_BusType);
    GUID snapshots[2] = {kSet, kSet};
    snapshots[1].Data2 = 0xbbbb;
    ASSERT_HR(S_OK, Begin(kLunE, snapshots[0]));
    ASSERT_HR(S_OK, Begin(kLunF, snapshots[1]));
    ASSERT_HR(S_OK, m_set->EndPrepareSnapshots(kSet));
    ASSERT_HR(S_OK, storagesim::WriteLunData("verdane01", "/vol/vol1/lun1", 0, "before"));
    ASSERT_HR(S_OK, m_set->CommitSnapshots(kSet));
    ASSERT_HR(S_OK, storagesim::WriteLunData("verdane01", "/vol/vol1/lun1", 0, "after!"));
    EXPECT_HR(S_OK, m_set->PostCommitSnapshots(kSet, 2));

    CLunRecord sources[] = {CLunRecord(SourceLun(kLunE)), CLunRecord(SourceLun(kLunF))};
    CLunRecord targets[] = {CLunRecord(TargetShell(kLunE)), CLunRecord(TargetShell(kLunF))};
    VDS_LUN_INFORMATION destinations[2];
    for (int i = 0; i < 2; ++i) {
        ASSERT_HR(S_OK, m_hw->GetTargetLuns(1, devices, &sources[i].Get(), &targets[i].Get()));
        EXPECT_NE(std::string(i ? kLunF : kLunE), targets[i]->m_szSerialNumber);
        ASSERT_EQ(1u, targets[i]->m_cInterconnects);
        destinations[i] = targets[i].Get();
    }
    // A source LUN outside the set leaves its destination as VSS gave it.
    CLunRecord outside(SourceLun("Q7vTk2Pw9sLa")), untouched(TargetShell("unchanged"));
    ASSERT_HR(S_OK, m_hw->GetTargetLuns(1, devices, &outside.Get(), &untouched.Get()));
    EXPECT_STREQ("unchanged", untouched->m_szSerialNumber);
    // The second of three failing to map leaves the third alone.
    CLunRecord bad(TargetShell("x").AddScsiInterconnect("/t", "no-colons"));
    VDS_LUN_INFORMATION three[] = {destinations[0], bad.Get(), destinations[1]};
    EXPECT_HR(VSS_E_PROVIDER_VETO, m_hw->LocateLuns(3, three));
    const std::string events = TakeEvents();
    EXPECT_EQ(events.size() - 27, events.find("0xC0041108 data 0x80070057\n")) << events;
    const std::string path1 = reinterpret_cast<char*>(targets[0]->m_rgInterconnects[0].m_pbAddress);
    const std::string path2 = reinterpret_cast<char*>(targets[1]->m_rgInterconnects[0].m_pbAddress);
    auto mapped = [](const std::string& path) {
        for (const auto& disk : Storage().disks)
            if (disk.path == path)
                return true;
        return false;
    };
    EXPECT_TRUE(mapped(path1));
    EXPECT_FALSE(mapped(path2));
    ASSERT_HR(S_OK, m_hw->LocateLuns(1, &destinations[1]));
    EXPECT_TRUE(mapped(path2));
    std::string data;
    ASSERT_HR(S_OK, storagesim::ReadLunData("verdane01", path1, 0, 6, &data));
    EXPECT_EQ("before", data);

    // The new disk as the host reports it: recognised, its interconnect fixed.
    CLunRecord disk(SourceLun(targets[0]->m_szSerialNumber));
    ASSERT_HR(S_OK, m_hw->FillInLunInfo(szDevice, &disk.Get(), &fSupported));
    EXPECT_TRUE(fSupported);
    EXPECT_EQ(path1, reinterpret_cast<char*>(disk->m_rgInterconnects[0].m_pbAddress));
    // Located with a blank-padded vendor id, but not the provider's disk for FillInLunInfo.
    CLunRecord padded(SourceLun(targets[0]->m_szSerialNumber).VendorId("ORVANE  "));
    ASSERT_HR(S_OK, m_hw->FillInLunInfo(szDevice, &padded.Get(), &fSupported));
    EXPECT_FALSE(fSupported);
    ASSERT_HR(S_OK, m_hw->OnLunEmpty(szDevice, &targets[0].Get()));
    for (const auto& lun : Storage().luns)
        EXPECT_NE(path1, lun.path);
    EXPECT_EQ(std::string::npos, TakeEvents().find("0xC"));

    // The second LUN's state changes: recognised and fixed, then handed to the core, which
    // refuses a break flag; another vendor's LUN is not the provider's business.
    CLunRecord second(SourceLun(targets[1]->m_szSerialNumber));
    EXPECT_HR(S_OK, m_hw->OnLunStateChange(&second.Get(), nullptr, 1, 0x100));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(targets[1]->m_rgInterconnects[0].m_pbAddress)),
              reinterpret_cast<char*>(second->m_rgInterconnects[0].m_pbAddress));
    EXPECT_HR(VSS_E_PROVIDER_VETO, m_hw->OnLunStateChange(&second.Get(), nullptr, 1, 0x1));
    CLunRecord foreign(SourceLun("AC00000000K1").VendorId("ACMEDISK"));
    EXPECT_HR(S_OK, m_hw->OnLunStateChange(&foreign.Get(), nullptr, 1, 0x1));
    EXPECT_EQ("0xC0041110 data 0x8004231B\n", TakeEvents());
}

// Every allocation of each LUN operation fails in turn: VSS receives E_OUTOFMEMORY or a veto,
// nothing leaks, and the operation then succeeds.
TEST_F(HwProviderTest, AllocationSweep)
{
    ASSERT_HR(S_OK, m_load->OnLoad(nullptr));
    WCHAR szDevice[] = W("\\\\.\\PhysicalDrive1");
    VSS_PWSZ devices[] = {szDevice};
    for (bool fNew : {false, true}) {
        auto sweep = [&](const char* name, const std::function<HRESULT()>& act) {
            SCOPED_TRACE(std::string(name) + (fNew ? " new" : " task"));
            HRESULT hr = E_FAIL;
            for (ULONG n = 1; FAILED(hr) && n < 1000; ++n) {
                (fNew ? pal::FailNothrowNewAt : pal::FailTaskAllocAt)(n, true);
                hr = act();
                pal::FailNothrowNewAt(0);
                pal::FailTaskAllocAt(0);
                EXPECT_TRUE(SUCCEEDED(hr) || hr == E_OUTOFMEMORY || hr == VSS_E_PROVIDER_VETO)
                    << n << " " << HexCode(hr);
            }
            EXPECT_HR(S_OK, hr);
        };
        CLunRecord source(SourceLun(kLunE)), destination(TargetShell(kLunE));
        BOOL fSupported = FALSE;
        sweep("supported", [&] {
            CLunRecord lun(SourceLun(kLunE));
            return m_hw->AreLunsSupported(1, 0, devices, &lun.Get(), &fSupported);
        });
        sweep("begin", [&] { return Begin(kLunE, kSet); });
        ASSERT_HR(S_OK, m_set->EndPrepareSnapshots(kSet));
        ASSERT_HR(S_OK, m_set->CommitSnapshots(kSet));
        // The build first: a build that fails ends the set (it clears the set id).
        ASSERT_HR(S_OK, m_hw->GetTargetLuns(0, nullptr, nullptr, nullptr));
        sweep("targets", [&] {
            CLunRecord shell(TargetShell(kLunE));
            HRESULT hr = m_hw->GetTargetLuns(1, devices, &source.Get(), &shell.Get());
            if (SUCCEEDED(hr))
                hr = m_hw->GetTargetLuns(1, devices, &source.Get(), &destination.Get());
            return hr;
        });
        sweep("locate", [&] { return m_hw->LocateLuns(1, &destination.Get()); });
        sweep("fill in", [&] {
            CLunRecord disk(SourceLun(destination->m_szSerialNumber));
            HRESULT hr = m_hw->FillInLunInfo(szDevice, &disk.Get(), &fSupported);
            return SUCCEEDED(hr) && !fSupported ? E_OUTOFMEMORY : hr;
        });
        sweep("empty", [&] { return m_hw->OnLunEmpty(szDevice, &destination.Get()); });
        ASSERT_HR(S_OK, m_set->AbortSnapshots(kSet));
    }
}

// Failures: the code VSS receives, the real code in the trace, the events.
TEST_F(HwProviderTest, GuardedFailures)
{
    ASSERT_HR(S_OK, m_load->OnLoad(nullptr));
    TakeEvents();
    CLunRecord lunE(SourceLun(kLunE)), foreign(SourceLun("AC00000000K1").VendorId("ACMEDISK"));
    CLunRecord bare(CLunBuilder().VendorId("ORVANE").SerialNumber("x"));
    WCHAR szDevice[] = W("\\\\.\\PhysicalDrive1");
    VSS_PWSZ devices[] = {szDevice, szDevice};
    BOOL fSupported = 7;
    ULONGLONG mask = 5;
    // The first allocation of the call fails.
    auto noMemory = [](const std::function<HRESULT()>& act) {
        pal::FailTaskAllocAt(1, true);
        HRESULT hr = act();
        pal::FailTaskAllocAt(0);
        return hr;
    };
    const std::string device = " \\\\.\\PhysicalDrive1";
    struct Row
    {
        const char* name;
        std::function<HRESULT()> act;
        HRESULT hrVss, hrReal;
        std::string events;
    } rows[] = {
        {"two LUNs",
         [&] {
             HRESULT hr = m_hw->AreLunsSupported(2, 0, devices, &lunE.Get(), &fSupported);
             EXPECT_EQ(7, fSupported); // not written
             return hr;
         },
         VSS_E_PROVIDER_VETO, ORVPROV_E_MULTILUN_VOLUME_NOT_SUPPORTED,
         "0xC0041105 data 0xC0040301\n"},
        {"supported, no memory",
         [&] {
             return noMemory(
                 [&] { return m_hw->AreLunsSupported(1, 0, devices, &lunE.Get(), &fSupported); });
         },
         VSS_E_PROVIDER_VETO, E_OUTOFMEMORY, "0xC0041105 data 0x8007000E\n"},
        {"locate, no memory",
         [&] { return noMemory([&] { return m_hw->LocateLuns(1, &lunE.Get()); }); }, E_OUTOFMEMORY,
         E_OUTOFMEMORY, "0xC0041108 data 0x8007000E\n"},
        {"fill in, no memory",
         [&] {
             return noMemory(
                 [&] { return m_hw->FillInLunInfo(szDevice, &lunE.Get(), &fSupported); });
         },
         E_OUTOFMEMORY, E_OUTOFMEMORY, "0xC004110A" + device + " data 0x8007000E\n"},
        // A LUN nobody manages is an answer, not a failure.
        {"foreign LUN",
         [&] { return m_hw->AreLunsSupported(1, 0, devices, &foreign.Get(), &fSupported); }, S_OK,
         S_OK, ""},
        {"unknown LUN", [&] { return m_hw->FillInLunInfo(szDevice, &lunE.Get(), &fSupported); },
         S_OK, S_OK, ""},
        {"unlocked clone query",
         [&] {
             EXPECT_HR(S_OK, storagesim::SetFault("EnumVirtualDisks", E_ACCESSDENIED, 1));
             return Begin(kLunE, kSet);
         },
         VSS_E_PROVIDER_VETO, VSS_E_UNEXPECTED_PROVIDER_ERROR, "0xC0041106 data 0x8004230F\n"},
        {"capabilities", [&] { return m_hw->GetProviderCapabilities(&mask); }, VSS_E_PROVIDER_VETO,
         E_NOTIMPL, ""},
        {"resync", [&] { return m_hw->ResyncLuns(nullptr, nullptr, 0, nullptr); },
         VSS_E_PROVIDER_VETO, E_NOTIMPL, ""},
        {"reuse", [&] { return m_hw->OnReuseLuns(nullptr, nullptr, 0); }, VSS_E_PROVIDER_VETO,
         E_NOTIMPL, ""},
        {"empty, no interconnect", [&] { return m_hw->OnLunEmpty(szDevice, &bare.Get()); },
         VSS_E_PROVIDER_VETO, ORVPROV_E_LUN_NOT_RECOGNIZED,
         "0xC0041109" + device + " data 0xC0040303\n"},
        {"prepare, other set", [&] { return m_set->EndPrepareSnapshots(kOther); },
         VSS_E_PROVIDER_VETO, ORVPROV_E_INCONSISTENT_SNAPSHOTSETID,
         "0xC004110B {5e7a11d0-2222-4a4a-0102-030405060708} data 0xC0040302\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TakeTraceText();
        EXPECT_HR(row.hrVss, row.act());
        char szReturned[40];
        std::snprintf(szReturned, sizeof(szReturned), "Returned hr=0x%08x\n", unsigned(row.hrReal));
        EXPECT_NE(std::string::npos, TakeTraceText().find(szReturned));
        EXPECT_EQ(row.events, TakeEvents());
    }
    // Out-values VSS must not see written.
    EXPECT_EQ(5u, mask);

    // The commit hands VSS the core's own code; the abort reports it afterwards.
    EXPECT_HR(ORVPROV_E_INCONSISTENT_SNAPSHOTSETID, m_set->CommitSnapshots(kOther));
    EXPECT_EQ("", TakeEvents());
    EXPECT_HR(S_OK, m_set->AbortSnapshots(kSet));
    EXPECT_EQ("0xC0041102 {5e7a11d0-2222-4a4a-0102-030405060708} data 0xC0040302\n"
              "0xC0041104 {5e7a11d0-1111-4a4a-0102-030405060708}\n",
              TakeEvents());
    // Without the class's writer the codes and the trace are the same, and no event is written.
    COrvaneHardwareProvider::UninitializeClass();
    TakeTraceText();
    EXPECT_HR(VSS_E_PROVIDER_VETO, m_hw->AreLunsSupported(2, 0, devices, &lunE.Get(), &fSupported));
    EXPECT_NE(std::string::npos, TakeTraceText().find("Returned hr=0xc0040301\n"));
    EXPECT_EQ("", TakeEvents());
}

// A core that cannot be made or initialised fails the load with its own code in the event.
TEST_F(HwProviderTest, LoadFailures)
{
    const std::pair<ULONG, const char*> rows[] = {
        {1, "new CProviderCoreFAILED\n"},
        {2, "m_pProvider->Initialize FAILED [hr=0x8007000e]\n"},
    };
    for (const auto& [nth, line] : rows) {
        NewObject();
        TakeEvents();
        TakeTraceText();
        pal::FailNothrowNewAt(nth, true);
        EXPECT_HR(E_OUTOFMEMORY, m_load->OnLoad(nullptr));
        pal::FailNothrowNewAt(0);
        EXPECT_NE(std::string::npos, TakeTraceText().find(line));
        EXPECT_EQ("0xC0041100 data 0x8007000E\n", TakeEvents());
    }
    // A configuration that cannot start is traced and the load goes on.
    CConfig::Terminate();
    const WCHAR* pszParameters =
        W("HKLM\\System\\CurrentControlSet\\Services\\Orvhwsvc\\Parameters");
    pal::InjectFault("RegOpenKeyExW", ERROR_ACCESS_DENIED, 0, pszParameters);
    pal::InjectFault("RegCreateKeyExW", ERROR_ACCESS_DENIED, 0, pszParameters);
    EXPECT_HR(S_OK, m_load->OnLoad(nullptr));
    pal::ClearFaults();
    EXPECT_NE(std::string::npos,
              TakeTraceText().find("CConfig::Initialize FAILED [hr=0x80070005]\n"));
    // Without the storage service's key nothing loads.
    NewObject();
    ASSERT_EQ(0, RegDeleteKeyW(HKEY_LOCAL_MACHINE, W("Software\\Halvern\\Tessera")));
    EXPECT_HR(VSS_E_PROVIDER_VETO, m_load->OnLoad(nullptr));
    EXPECT_NE(std::string::npos,
              TakeTraceText().find(
                  "regKey.Open on Software\\Halvern\\Tessera regkey FAILED [error=2]\n"));
    ASSERT_HR(S_OK, storagesim::InstallService());
    // A second load keeps the one core.
    ASSERT_HR(S_OK, m_load->OnLoad(nullptr));
    ASSERT_HR(S_OK, Begin(kLunE, kSet));
    ASSERT_HR(S_OK, m_load->OnLoad(nullptr));
    ASSERT_HR(S_OK, m_load->OnUnload(FALSE));
    EXPECT_HR(S_OK, m_set->EndPrepareSnapshots(kSet));
}

// No line reaches the trace file during the commit, not even its own scope's; the next does.
TEST_F(HwProviderTest, CommitKeepsTheTraceFileQuiet)
{
    // The file opens before the creation's threads trace, as the process entry opens it.
    const std::filesystem::path dir = MakeDir("trace");
    TraceInit(TRACE_LEVEL_VERBOSE, Wide(dir.string() + "/").c_str(), W("orvp"), 0);
    ASSERT_HR(S_OK, m_load->OnLoad(nullptr));
    ASSERT_HR(S_OK, Begin(kLunE, kSet));
    ASSERT_HR(S_OK, m_set->EndPrepareSnapshots(kSet));
    ASSERT_HR(S_OK, m_set->CommitSnapshots(kSet));
    ASSERT_HR(S_OK, m_set->PreFinalCommitSnapshots(kSet));
    TraceClose();
    std::stringstream file;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        file << std::ifstream(entry.path()).rdbuf();
    EXPECT_EQ(std::string::npos, file.str().find("::CommitSnapshots() "));
    EXPECT_NE(std::string::npos, file.str().find("PreFinalCommitSnapshots() entered"));
}

// The commit is timed on the tick count, a wrap included; a commit of more than 10000 ms is
// reported as slow when the set is aborted, one of 10000 ms is not.
TEST_F(HwProviderTest, CommitTiming)
{
    ASSERT_HR(S_OK, m_load->OnLoad(nullptr));
    const std::string set = " {5e7a11d0-1111-4a4a-0102-030405060708}";
    struct Row
    {
        DWORD dwStart, dwEnd;
        std::string postCommit, abort;
    } rows[] = {
        {1000, 11000, "0x40041002" + set + " 10000\n", "0xC0041104" + set + "\n"},
        {1000, 11001, "0x40041002" + set + " 10001\n",
         "0x8004110C" + set + " 10001\n0xC0041104" + set + "\n"},
        {0xFFFFFF00, 0x10, "0x40041002" + set + " 272\n", "0xC0041104" + set + "\n"},
    };
    for (const Row& row : rows) {
        ASSERT_HR(S_OK, Begin(kLunE, kSet));
        ASSERT_HR(S_OK, m_set->EndPrepareSnapshots(kSet));
        TakeEvents();
        // The front's two readings around the store's own two.
        pal::ScriptTickCounts({row.dwStart, row.dwStart, row.dwEnd, row.dwEnd});
        ASSERT_HR(S_OK, m_set->CommitSnapshots(kSet));
        ASSERT_HR(S_OK, m_set->PostCommitSnapshots(kSet, 1));
        EXPECT_EQ(row.postCommit, TakeEvents());
        ASSERT_HR(S_OK, m_set->AbortSnapshots(kSet));
        EXPECT_EQ(row.abort, TakeEvents());
    }
}

// Of GetTargetLuns calls that arrive together, exactly one builds; the next set builds again.
TEST_F(HwProviderTest, TargetLunsBuiltOncePerSet)
{
    ASSERT_HR(S_OK, m_load->OnLoad(nullptr));
    for (int set = 0; set < 2; ++set) {
        ASSERT_HR(S_OK, Begin(kLunE, kSet));
        ASSERT_HR(S_OK, m_set->EndPrepareSnapshots(kSet));
        ASSERT_HR(S_OK, m_set->CommitSnapshots(kSet));
        TakeTraceText();
        std::vector<std::thread> threads;
        // No LUNs: the calls race for the build alone, as the core's lists take no lock.
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([this] {
                CoInitializeEx(nullptr, COINIT_MULTITHREADED);
                EXPECT_HR(S_OK, m_hw->GetTargetLuns(0, nullptr, nullptr, nullptr));
                CoUninitialize();
            });
        for (auto& thread : threads)
            thread.join();
        const std::string trace = TakeTraceText();
        EXPECT_EQ(trace.find("Building target lun info first...\n"),
                  trace.rfind("Building target lun info first...\n"));
        EXPECT_NE(std::string::npos, trace.find("Building target lun info first...\n"));
        // The set's LUN now has its target, without a second build.
        CLunRecord source(SourceLun(kLunE)), target(TargetShell(kLunE));
        WCHAR szDevice[] = W("\\\\.\\PhysicalDrive1");
        VSS_PWSZ devices[] = {szDevice};
        EXPECT_HR(S_OK, m_hw->GetTargetLuns(1, devices, &source.Get(), &target.Get()));
        EXPECT_NE(std::string(kLunE), target->m_szSerialNumber);
        EXPECT_EQ(std::string::npos, TakeTraceText().find("Building target lun info first"));
        ASSERT_HR(S_OK, m_set->AbortSnapshots(kSet));
    }
    // A failed build is tried again by the next call (which fails too: the failure ended the
    // set).
    ASSERT_HR(S_OK, Begin(kLunE, kSet));
    ASSERT_HR(S_OK, m_set->EndPrepareSnapshots(kSet));
    ASSERT_HR(S_OK, m_set->CommitSnapshots(kSet));
    ASSERT_HR(S_OK, storagesim::SetFault("GetTargetLunInfo", E_ACCESSDENIED, 1));
    TakeEvents();
    for (int i = 0; i < 2; ++i) {
        EXPECT_HR(VSS_E_PROVIDER_VETO, m_hw->GetTargetLuns(0, nullptr, nullptr, nullptr));
        EXPECT_NE(std::string::npos, TakeTraceText().find("Building target lun info first"));
    }
    EXPECT_EQ(0u, TakeEvents().rfind("0xC0041107 data 0xC0040304\n", 0));
}

} // namespace
