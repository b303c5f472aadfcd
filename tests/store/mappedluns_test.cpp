// The registry records of mapped target LUNs and the refresh of the target LUN map from them.
#include "diag/trace.h"
#include "sim/storage/storagesim.h"
#include "store/tesserastore.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include "pal/atlbase.h"
#include "pal/combaseapi.h"
#include "pal/palcontrol.h"
#include "pal/regkey.h"

#include <string>

namespace {

using orvtest::Narrow;
using orvtest::TakeTraceText;
using orvtest::Wide;

const std::string kBase = "Software\\Halvern\\VSSProvider\\MappedTargetLuns";

LPCWSTR L(const std::u16string& s)
{
    return reinterpret_cast<LPCWSTR>(s.c_str());
}

class MappedLunsTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        m_dwLevel = TraceGetLevel();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_HR(S_OK, m_service.Start());
        TraceSetLevel(TRACE_LEVEL_INFO);
        // The thread's first scope sets its indentation up; the lines below compare with it.
        {
            CTraceScope warmUp(W("MappedLunsTest"));
        }
        TakeTraceText();
    }
    void TearDown() override
    {
        TraceSetLevel(m_dwLevel);
        m_service.Stop();
        CoUninitialize();
        orvtest::PalTest::TearDown();
    }

    HRESULT Save(const std::u16string& serial, const std::u16string& snapshot = u"snap",
                 const std::u16string& filer = u"verdane01")
    {
        return m_store.SaveMappedLunDetails(L(filer), W("/vol/vol1/lun1"), L(snapshot), L(serial),
                                            W("path1"), W("path2"), W("device"));
    }

    // A snapshot of E:\ with its target LUN created on the service; returns the target's serial.
    std::u16string MakeTargetLun()
    {
        CComPtr<IVSSSupport> pSupport;
        EXPECT_HR(S_OK, pSupport.CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER));
        CComPtr<ISnapShot> pSnapShot;
        EXPECT_HR(S_OK, pSupport.QueryInterface(&pSnapShot));
        std::u16string drive = u"E:\\";
        DRIVE_ENTRY entry{const_cast<LPWSTR>(L(drive)), 0};
        DRIVE_LIST drives{0, 0, 1, &entry};
        EXPECT_HR(S_OK, pSnapShot->CreateSnapShot(&drives, W("snap")));
        std::u16string filer = u"verdane01", path = u"/vol/vol1/lun1";
        LUN_LOCATION source{const_cast<LPWSTR>(L(filer)), const_cast<LPWSTR>(L(path))};
        TARGET_LUN_INFO* pInfo = nullptr;
        EXPECT_HR(S_OK, pSupport->GetTargetLunInfo(&source, W("snap"), 1, 0, &pInfo));
        EXPECT_HR(S_OK, pSupport->CreateTargetLun(&source, W("snap"), pInfo));
        std::u16string serial = reinterpret_cast<const char16_t*>(pInfo->serialNumber);
        for (LPWSTR psz :
             {pInfo->lunLocation.filerName, pInfo->lunLocation.lunPath, pInfo->serialNumber,
              pInfo->vendorId, pInfo->productId, pInfo->productRevision})
            CoTaskMemFree(psz);
        CoTaskMemFree(pInfo);
        return serial;
    }

    static bool HasRecord(const std::u16string& serial)
    {
        CRegKey key;
        return key.Open(HKEY_LOCAL_MACHINE, L(Wide(kBase) + u"\\" + serial), KEY_READ) ==
               ERROR_SUCCESS;
    }
    static std::string Value(const std::u16string& serial, LPCWSTR pszName)
    {
        CRegKey key;
        if (key.Open(HKEY_LOCAL_MACHINE, L(Wide(kBase) + u"\\" + serial), KEY_READ) !=
            ERROR_SUCCESS)
            return "(no key)";
        WCHAR sz[256];
        ULONG cch = ARRAYSIZE(sz);
        if (key.QueryStringValue(pszName, sz, &cch) != ERROR_SUCCESS)
            return "(no value)";
        return Narrow(reinterpret_cast<const char16_t*>(sz));
    }

    storagesim::CStorageService m_service;
    CTesseraStoreSubSystem m_store;
    DWORD m_dwLevel = 0;
};

TEST_F(MappedLunsTest, SaveOverwriteDelete)
{
    ASSERT_HR(S_OK, Save(u"SER000000001"));
    EXPECT_NE(std::string::npos,
              TakeTraceText().find("Successfully updated registry with values for " + kBase +
                                   "\\SER000000001 \n"));
    ASSERT_HR(S_OK, Save(u"SER000000001", u"other", u"verdane02"));
    EXPECT_EQ("verdane02", Value(u"SER000000001", W("FilerName")));
    EXPECT_EQ("other", Value(u"SER000000001", W("SnapshotName")));
    EXPECT_EQ("/vol/vol1/lun1", Value(u"SER000000001", W("SourceLunPath")));
    EXPECT_EQ("device", Value(u"SER000000001", W("DeviceId")));
    EXPECT_EQ("path1", Value(u"SER000000001", W("TargetLunPath1")));
    EXPECT_EQ("path2", Value(u"SER000000001", W("TargetLunPath2")));
    TakeTraceText();

    EXPECT_HR(S_OK, m_store.DeleteMappedLunDetails(W("SER000000001")));
    EXPECT_FALSE(HasRecord(u"SER000000001"));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND),
              m_store.DeleteMappedLunDetails(W("SER000000001")));
    EXPECT_NE(std::string::npos, TakeTraceText().find("regKey.DeleteSubKey of regkey " + kBase +
                                                      " FAILED [error=2]\n"));
}

TEST_F(MappedLunsTest, SaveFailures)
{
    const std::u16string base = u"HKLM\\" + Wide(kBase);
    const std::u16string record = base + u"\\SER000000002";
    const struct
    {
        const char* api;
        ULONG nth;
        std::u16string arg;
        std::string line;
        bool fRecord;
        std::string filer;
    } rows[] = {
        {"RegCreateKeyExW", 0, base, "regKey.Open on " + kBase + " regkey FAILED [error=5]\n",
         false, "(no key)"},
        {"RegCreateKeyExW", 0, record,
         "regKey.Create or Count setting on " + kBase + " regkey FAILED [error=5]\n", false,
         "(no key)"},
        // The third value fails: the first two stay written.
        {"RegSetValueExW", 3, u"", "regKey.SetValue in " + kBase + " regkey FAILED [error=5]\n",
         true, "verdane01"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.api);
        pal::InjectFault(row.api, ERROR_ACCESS_DENIED, row.nth,
                         row.arg.empty() ? nullptr : L(row.arg));
        EXPECT_HR(E_ACCESSDENIED, Save(u"SER000000002"));
        pal::ClearFaults();
        EXPECT_NE(std::string::npos, TakeTraceText().find(row.line));
        EXPECT_EQ(row.fRecord, HasRecord(u"SER000000002"));
        EXPECT_EQ(row.filer, Value(u"SER000000002", W("FilerName")));
        if (row.fRecord) {
            EXPECT_EQ("(no value)", Value(u"SER000000002", W("SnapshotName")));
        }
    }

    // A serial number whose key path (terminator included) would not fit 256 units is refused
    // and nothing is written; one character less fits.
    const std::u16string tooLong(256 - kBase.size() - 1, u'S');
    EXPECT_HR(E_INVALIDARG, Save(tooLong));
    EXPECT_HR(E_INVALIDARG, m_store.DeleteMappedLunDetails(L(tooLong)));
    const std::u16string longest(tooLong.size() - 1, u'S');
    EXPECT_HR(S_OK, Save(longest));
    EXPECT_TRUE(HasRecord(longest));
    EXPECT_HR(S_OK, m_store.DeleteMappedLunDetails(L(longest)));
    EXPECT_FALSE(HasRecord(longest));
}

TEST_F(MappedLunsTest, RefreshAddsConfirmedRecordsAndDropsTheOthers)
{
    CLinkedList<CTargetLunInfo> map;
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), m_store.UpdateMappedTargetLuns(&map));
    EXPECT_NE(std::string::npos,
              TakeTraceText().find("regKey.Open on " + kBase + " regkey FAILED [error=2]\n"));

    const std::u16string serial = MakeTargetLun();
    ASSERT_HR(S_OK, Save(u"GONE00000001", u"nosuchsnap"));
    ASSERT_HR(S_OK, Save(serial));
    TakeTraceText();
    ASSERT_HR(S_OK, m_store.UpdateMappedTargetLuns(&map));
    ASSERT_EQ(1u, map.GetCount());
    map.MoveFirst();
    const CTargetLunInfo* pInfo = map.Current();
    EXPECT_EQ(Narrow(serial), Narrow(reinterpret_cast<const char16_t*>(pInfo->SerialNo())));
    EXPECT_EQ("ORVANE", Narrow(reinterpret_cast<const char16_t*>(pInfo->VendorId())));
    EXPECT_EQ("LUN", Narrow(reinterpret_cast<const char16_t*>(pInfo->ProductId())));
    EXPECT_EQ("path1", Narrow(reinterpret_cast<const char16_t*>(pInfo->TargetLunPath1())));
    EXPECT_EQ("device", Narrow(reinterpret_cast<const char16_t*>(pInfo->DeviceId())));
    EXPECT_EQ("snap", Narrow(reinterpret_cast<const char16_t*>(pInfo->SnapshotName())));
    EXPECT_EQ("verdane01", Narrow(reinterpret_cast<const char16_t*>(pInfo->FilerName())));
    EXPECT_FALSE(HasRecord(u"GONE00000001"));
    std::string text = TakeTraceText();
    EXPECT_NE(std::string::npos,
              text.find("    pszFiler=verdane01\n"
                        "    pszSourceLunPath=/vol/vol1/lun1\n"
                        "    pszSnapshotName=nosuchsnap\n"
                        "    Calling c.pVssSupport->GetTargetLunInfo\n"
                        "    Failed calling GetTargetLunInfo(verdane01,/vol/vol1/lun1,nosuchsnap,"
                        "pTgtLuninfo)\n"))
        << text;

    // A second refresh leaves the known record alone and does not ask the service.
    ASSERT_HR(S_OK, storagesim::SetFault("GetTargetLunInfo", E_FAIL));
    ASSERT_HR(S_OK, m_store.UpdateMappedTargetLuns(&map));
    EXPECT_EQ(1u, map.GetCount());
    text = TakeTraceText();
    EXPECT_NE(std::string::npos, text.find("    LUN path1 with serial no " + Narrow(serial) +
                                           " already exists in the cache\n"
                                           "    Skipping the update from regsitry for this LUN\n"))
        << text;
    EXPECT_TRUE(HasRecord(serial));

    // A subkey whose path would not fit the record's buffer is no record of ours: passed over.
    CRegKey longKey;
    ASSERT_EQ(ERROR_SUCCESS,
              longKey.Create(HKEY_LOCAL_MACHINE, L(Wide(kBase) + u"\\" + std::u16string(240, u'L')),
                             KEY_ALL_ACCESS));
    longKey.Close();
    ASSERT_HR(S_OK, m_store.UpdateMappedTargetLuns(&map));
    EXPECT_EQ(1u, map.GetCount());

    // Without the service nothing changes.
    pal::InjectFault("CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG));
    CLinkedList<CTargetLunInfo> empty;
    EXPECT_HR(REGDB_E_CLASSNOTREG, m_store.UpdateMappedTargetLuns(&empty));
    EXPECT_EQ(0u, empty.GetCount());
    EXPECT_TRUE(HasRecord(serial));
}

TEST_F(MappedLunsTest, AnUnreadableRecordStopsTheRefreshAfterTheRecordsBeforeIt)
{
    const std::u16string serial = MakeTargetLun();
    ASSERT_HR(S_OK, Save(serial));
    // Enumerated after the good record, and without its values.
    CRegKey broken;
    ASSERT_EQ(ERROR_SUCCESS,
              broken.Create(HKEY_LOCAL_MACHINE, L(Wide(kBase) + u"\\~broken"), KEY_ALL_ACCESS));
    broken.Close();
    TakeTraceText();
    CLinkedList<CTargetLunInfo> map;
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_INVALID_DATA), m_store.UpdateMappedTargetLuns(&map));
    EXPECT_EQ(1u, map.GetCount());
    EXPECT_NE(std::string::npos, TakeTraceText().find("regKey.Open on " + kBase +
                                                      "\\~broken regkey FAILED [error=13]\n"));
    EXPECT_TRUE(HasRecord(u"~broken"));
}

// Out of memory in the refresh itself, counted from the call: E_OUTOFMEMORY without an error
// line, nothing added to the map, the record kept.
TEST_F(MappedLunsTest, RefreshOutOfMemory)
{
    const struct
    {
        const char* name;
        ULONG nthNew;
        ULONG nthTask;
    } rows[] = {
        {"record buffer", 2, 0}, // after the service object
        {"map record", 3, 0},    // after the record buffer
        {"first copy", 0, 8},    // after the service's answer (the block and six strings)
        {"last copy", 0, 17},    // the tenth copy
    };
    const std::u16string serial = MakeTargetLun();
    ASSERT_HR(S_OK, Save(serial));
    TraceSetLevel(TRACE_LEVEL_ERROR);
    TakeTraceText();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CLinkedList<CTargetLunInfo> map;
        pal::FailNothrowNewAt(row.nthNew);
        pal::FailTaskAllocAt(row.nthTask);
        EXPECT_HR(E_OUTOFMEMORY, m_store.UpdateMappedTargetLuns(&map));
        pal::FailNothrowNewAt(0);
        pal::FailTaskAllocAt(0);
        EXPECT_EQ("", TakeTraceText());
        EXPECT_EQ(0u, map.GetCount());
        EXPECT_TRUE(HasRecord(serial));
    }
    CLinkedList<CTargetLunInfo> map;
    EXPECT_HR(S_OK, m_store.UpdateMappedTargetLuns(&map));
    EXPECT_EQ(1u, map.GetCount());
}

TEST_F(MappedLunsTest, ALongSnapshotNameStopsTheRefresh)
{
    const struct
    {
        size_t cch;
        HRESULT expected;
    } rows[] = {{126, S_OK}, {130, HRESULT_FROM_WIN32(ERROR_MORE_DATA)}};
    for (const auto& row : rows) {
        ASSERT_HR(S_OK, Save(u"LONG00000001", std::u16string(row.cch, u's')));
        CLinkedList<CTargetLunInfo> map;
        EXPECT_HR(row.expected, m_store.UpdateMappedTargetLuns(&map)) << row.cch;
        EXPECT_EQ(0u, map.GetCount());
        // Read but not confirmed: dropped; unreadable: kept.
        EXPECT_EQ(row.expected != S_OK, HasRecord(u"LONG00000001")) << row.cch;
    }
    EXPECT_NE(std::string::npos,
              TakeTraceText().find("regKey.Open on " + kBase +
                                   "\\LONG00000001 regkey FAILED [error=234]\n"));
}

} // namespace
