#include "tests/core/support/corefixture.h"

#include "diag/config.h"
#include "diag/trace.h"
#include "store/tesserastore.h"
#include "store/vdcache.h"
#include "tests/core/support/recordtext.h"
#include "tests/support/tracetext.h"

#include "pal/combaseapi.h"
#include "pal/winreg.h"
#include "pal/winuser.h"

namespace orvtest {

namespace {

std::string Join(const std::vector<LPCWSTR>& fields)
{
    std::string text;
    for (const std::string& field : FieldTexts(fields))
        text += " " + field;
    return text;
}

} // namespace

void CoreTest::SetUp()
{
    PalTest::SetUp();
    CConfig::ResetForTest();
    ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    ASSERT_HR(S_OK, m_service.Start());
    NewCore();
    TraceSetLevel(TRACE_LEVEL_INFO);
    TakeTraceText();
}

void CoreTest::TearDown()
{
    if (m_core)
        m_core->AbortSnapshots(&kSetId);
    m_core.reset();
    EXPECT_TRUE(WaitUntil([] { return storagesim::ActiveCreationCount() == 0; }));
    // The disk list is cached for the whole process; the next test has another machine.
    SetVDCacheFalse();
    m_service.Stop();
    CoUninitialize();
    CConfig::ResetForTest();
    PalTest::TearDown();
}

void CoreTest::Restart()
{
    TearDown();
    SetUp();
}

void CoreTest::NewCore()
{
    if (m_core)
        m_core->AbortSnapshots(&kSetId);
    m_core = std::make_unique<CProviderCore>();
    ASSERT_HR(S_OK, m_core->Initialize());
}

HRESULT CoreTest::Add(LPCWSTR pszSerialNo, LONG eSnapshotAttr, const GUID& setId)
{
    EXPECT_HR(S_OK, m_core->SetSnapshotSetId(&setId));
    GUID snapshotId = setId;
    snapshotId.Data2 = static_cast<USHORT>(0xA000 + m_core->Snapshots().GetCount());
    WCHAR szDevice[32];
    wsprintfW(szDevice, W("\\\\.\\PhysicalDrive%d"), m_core->Snapshots().GetCount() + 1);
    return m_core->AddSnapshot(&setId, &snapshotId, CORE_TEST_LUN, pszSerialNo, szDevice,
                               eSnapshotAttr);
}

void CoreTest::MapSet(std::initializer_list<LPCWSTR> serialNos, LONG eSnapshotAttr)
{
    for (LPCWSTR pszSerialNo : serialNos)
        ASSERT_HR(S_OK, Add(pszSerialNo, eSnapshotAttr));
    ASSERT_HR(S_OK, m_core->EndPrepareSnapshots(&kSetId));
    ASSERT_HR(S_OK, m_core->CommitSnapshots(&kSetId));
    ASSERT_HR(S_OK, m_core->BuildTargetLunsInfo());
    for (DWORD n = 0; n < serialNos.size(); ++n) {
        const CSnapshotEntry& entry = Entry(n);
        ASSERT_HR(S_OK, m_core->MapTargetLun(entry.TargetLunVendorId(), entry.TargetLunProductId(),
                                             entry.TargetLunProductRevision(),
                                             entry.TargetLunSerialNo(), entry.TargetLunPath(),
                                             entry.TargetLunPath2(), W("UNKNOWN")));
    }
    TakeTraceText();
}

CSnapshotEntry& CoreTest::Entry(DWORD n)
{
    m_core->Snapshots().MoveFirst();
    while (n-- > 0)
        m_core->Snapshots().MoveNext();
    return *m_core->Snapshots().Current();
}

CLunBuilder CoreTest::TargetLun(DWORD n, const char* pszVendorId)
{
    const CSnapshotEntry& entry = Entry(n);
    return CLunBuilder()
        .VendorId(pszVendorId)
        .ProductId("LUN")
        .ProductRevision("9.1")
        .SerialNumber(FieldText(entry.TargetLunSerialNo()).c_str())
        .AddScsiInterconnect(FieldText(entry.TargetLunPath()), FieldText(entry.TargetLunPath2()));
}

std::string CoreTest::StateText()
{
    const GUID& id = m_core->SnapshotSetId();
    std::string text = "set " + std::to_string(id.Data1) + "-" + std::to_string(id.Data2) +
                       " recovery " + std::to_string(m_core->IsRecoveryEnabled()) + "\n";
    for (auto* pList : {&m_core->Snapshots(), &m_core->BackupSnapshots()}) {
        for (pList->MoveFirst(); pList->HasCurrent(); pList->MoveNext())
            text += (pList == &m_core->Snapshots() ? "entry" : "backup") +
                    Join(StringFields(*pList->Current())) + " " +
                    std::to_string(pList->Current()->SnapshotAttr()) + "\n";
    }
    auto& pairs = m_core->LCPairs();
    for (pairs.MoveFirst(); pairs.HasCurrent(); pairs.MoveNext()) {
        const CLCPair& pair = *pairs.Current();
        text += "pair" + Join({pair.Filer(), pair.LunPath(), pair.Clone(), pair.Device()}) + " " +
                std::to_string(pair.SnapshotAttr()) + "\n";
    }
    auto& map = m_core->TargetLunMap();
    for (map.MoveFirst(); map.HasCurrent(); map.MoveNext())
        text += "map" + Join(StringFields(*map.Current())) + "\n";
    HKEY hKey = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, ORV_MAPPED_TARGET_LUNS_KEY, 0, KEY_READ, &hKey) == 0) {
        WCHAR szName[256];
        for (DWORD i = 0, cch = 256;
             RegEnumKeyExW(hKey, i, szName, &cch, nullptr, nullptr, nullptr, nullptr) == 0;
             ++i, cch = 256)
            text += "record " + FieldText(szName) + "\n";
        RegCloseKey(hKey);
    }
    return text;
}

storagesim::StateView CoreTest::Storage()
{
    storagesim::StateView view;
    EXPECT_HR(S_OK, storagesim::ReadState(&view));
    return view;
}

} // namespace orvtest
