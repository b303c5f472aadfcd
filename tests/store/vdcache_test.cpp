// The virtual disk cache and LUN verification against the simulated storage service.
#include "store/vdcache.h"

#include "diag/trace.h"
#include "res/orvmsg.h"
#include "sim/storage/storagesim.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include "pal/atlbase.h"
#include "pal/combaseapi.h"
#include "pal/palcontrol.h"

#include <cstring>
#include <string>

namespace {

using orvtest::Narrow;
using orvtest::TakeTraceText;

// Two disks share a serial number; the third has no mount point, the fourth an empty one.
const char* const kTopology = R"({
  "filers": [{"name": "fa", "volumes": [{"name": "v", "luns": [
    {"name": "a", "serial": "SAME00000001", "host": {"mountPoints": ["E:\\"]}},
    {"name": "b", "serial": "SAME00000001", "host": {"lun": 1, "mountPoints": ["F:\\"]}},
    {"name": "c", "serial": "NoMount00001", "host": {"lun": 2, "mountPoints": []}},
    {"name": "d", "serial": "EmptyMount01", "host": {"lun": 3, "mountPoints": [""]}}]}]}]
})";

// The outputs of one verification, freed with the test.
struct CResult
{
    LPWSTR pszSerial = nullptr;
    LPWSTR pszLunPath = nullptr;
    LPWSTR pszFiler = nullptr;
    LPWSTR pszDrive = nullptr;
    ~CResult()
    {
        CoTaskMemFree(pszSerial);
        CoTaskMemFree(pszLunPath);
        CoTaskMemFree(pszFiler);
        CoTaskMemFree(pszDrive);
    }
    static std::string Text(LPCWSTR psz) { return psz ? Narrow(psz) : "(null)"; }
    std::string Summary() const
    {
        return Text(pszFiler) + "|" + Text(pszLunPath) + "|" + Text(pszDrive) + "|" +
               Text(pszSerial);
    }
};

class VdCacheTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        m_dwLevel = TraceGetLevel();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_HR(S_OK, m_service.Start());
        SetVDCacheFalse();
        TraceSetLevel(TRACE_LEVEL_INFO);
        TakeTraceText();
    }
    void TearDown() override
    {
        SetVDCacheFalse();
        TraceSetLevel(m_dwLevel);
        m_service.Stop();
        CoUninitialize();
        orvtest::PalTest::TearDown();
    }

    HRESULT BySerial(const char16_t* serial, CResult& r)
    {
        r.pszSerial = DuplicateSerial(serial);
        return VerifyLun(&r.pszSerial, 0, &r.pszLunPath, &r.pszFiler, &r.pszDrive);
    }
    HRESULT ByPath(const char16_t* path, CResult& r)
    {
        LPWSTR pszPath = const_cast<LPWSTR>(reinterpret_cast<LPCWSTR>(path));
        HRESULT hr = VerifyLun(&r.pszSerial, 0, &pszPath, &r.pszFiler, &r.pszDrive);
        EXPECT_EQ(reinterpret_cast<LPCWSTR>(path), pszPath) << "the caller's path is kept";
        return hr;
    }
    static LPWSTR DuplicateSerial(const char16_t* serial)
    {
        const size_t cb = (std::char_traits<char16_t>::length(serial) + 1) * sizeof(WCHAR);
        auto* p = static_cast<LPWSTR>(CoTaskMemAlloc(cb));
        memcpy(p, serial, cb);
        return p;
    }

    storagesim::CStorageService m_service;
    DWORD m_dwLevel = 0;
};

TEST_F(VdCacheTest, FirstVerificationEnumeratesLaterOnesUseTheCache)
{
    CResult first;
    ASSERT_HR(S_OK, BySerial(u"HnLmC0DH4Rdz", first));
    EXPECT_EQ("verdane01|/vol/vol2/lun1|G:\\|HnLmC0DH4Rdz", first.Summary());
    // Lines inside VerifyLun's scope are one step in; the dump's fields one more.
    EXPECT_EQ("    Calling pVssSupport->EnumVirtualDisks\n"
              "    Looking for LUN with serial#=HnLmC0DH4Rdz\n"
              "    VirtualDiskInfo:\n"
              "        FilerPath=/vol/vol2/lun1\n"
              "        SerialNumber=HnLmC0DH4Rdz\n"
              "        BackedBySnapshot=\n"
              "        Shared=1\n"
              "        SCSIPort=2\n"
              "        Bus=0\n"
              "        Target=0\n"
              "        LUN=2\n"
              "        Readonly=0\n"
              "        Size=0\n"
              "        MountPoint=G:\\\n"
              "        MountPoint=C:\\mnt\\logs\\\n",
              TakeTraceText());

    // The service would now fail: the answers come from the cache.
    ASSERT_HR(S_OK, storagesim::SetFault("EnumVirtualDisks", E_FAIL));
    TraceSetLevel(TRACE_LEVEL_ERROR);
    const struct
    {
        const char16_t* serial;
        std::string expected;
    } rows[] = {
        {u"HnLmC0DH4Rdx", "verdane01|/vol/vol1/lun1|E:\\|HnLmC0DH4Rdx"},
        {u"Q7vTk2Pw9sLb", "verdane02|/vol/vol1/lun2|J:\\|Q7vTk2Pw9sLb"},
        {u"hnlmc0dh4rdx", "(null)|(null)|(null)|hnlmc0dh4rdx"}, // letter case counts
        {u"AC00000000K1", "(null)|(null)|(null)|AC00000000K1"}, // another vendor's disk
    };
    for (const auto& row : rows) {
        CResult r;
        EXPECT_HR(S_OK, BySerial(row.serial, r));
        EXPECT_EQ(row.expected, r.Summary());
    }
    EXPECT_EQ("", TakeTraceText());
    TraceSetLevel(TRACE_LEVEL_INFO);
    CResult again;
    ASSERT_HR(S_OK, BySerial(u"HnLmC0DH4Rdx", again));
    EXPECT_EQ(0u, TakeTraceText().find("    Fetching Enumerated values from cache...\n"
                                       "    Looking for LUN with serial#=HnLmC0DH4Rdx\n"));

    // Dropping the cache makes the next verification ask the service, which now fails.
    SetVDCacheFalse();
    EXPECT_EQ("    Free'ing VD_INFO buffer.... \n    Freed mountinfo buffer succesfully.\n",
              TakeTraceText());
    CResult failed;
    EXPECT_HR(ORVPROV_E_ENUMVDISK_FAILED, BySerial(u"HnLmC0DH4Rdx", failed));
    EXPECT_EQ("(null)|(null)|(null)|HnLmC0DH4Rdx", failed.Summary());
    EXPECT_EQ("    Calling pVssSupport->EnumVirtualDisks\n"
              "    pVssSupport->EnumVirtualDisks FAILED [hr=0x80004005]\n"
              "        Freed mountinfo buffer succesfully.\n",
              TakeTraceText());
}

TEST_F(VdCacheTest, LookupByPathReturnsTheSerialNumber)
{
    CResult r;
    ASSERT_HR(S_OK, ByPath(u"/vol/vol1/lun2", r));
    EXPECT_EQ("verdane01|(null)|F:\\|HnLmC0DH4Rdy", r.Summary());
    EXPECT_EQ(0u, TakeTraceText().find("    Calling pVssSupport->EnumVirtualDisks\n"
                                       "    Looking for LUN with LunPath=/vol/vol1/lun2\n"
                                       "    VirtualDiskInfo:\n"));
    CResult none;
    ASSERT_HR(S_OK, ByPath(u"/VOL/vol1/lun2", none));
    EXPECT_EQ("(null)|(null)|(null)|(null)", none.Summary());

    // Without a copy of the path nothing is looked up, but the cache is still filled, and a
    // failing enumeration still fails the verification.
    SetVDCacheFalse();
    TakeTraceText();
    for (HRESULT hrEnum : {S_OK, E_FAIL}) {
        if (FAILED(hrEnum)) {
            ASSERT_HR(S_OK, storagesim::SetFault("EnumVirtualDisks", hrEnum, 1));
        }
        CResult noCopy;
        pal::FailTaskAllocAt(1);
        HRESULT hr = ByPath(u"/vol/vol1/lun2", noCopy);
        pal::FailTaskAllocAt(0);
        EXPECT_HR(SUCCEEDED(hrEnum) ? S_OK : ORVPROV_E_ENUMVDISK_FAILED, hr);
        EXPECT_EQ("(null)|(null)|(null)|(null)", noCopy.Summary());
        SetVDCacheFalse();
        const std::string text = TakeTraceText();
        EXPECT_NE(std::string::npos, text.find("Calling pVssSupport->EnumVirtualDisks\n"));
        EXPECT_EQ(std::string::npos, text.find("Looking for LUN")) << text;
        // Only a filled cache has disks to free.
        EXPECT_EQ(SUCCEEDED(hrEnum), text.find("Free'ing VD_INFO buffer") != std::string::npos);
    }
}

TEST_F(VdCacheTest, DuplicateSerialsOddMountPointsAndAHostWithoutDisks)
{
    ASSERT_HR(S_OK, storagesim::InitializeState(kTopology, ""));
    CResult first;
    ASSERT_HR(S_OK, BySerial(u"SAME00000001", first));
    EXPECT_EQ("fa|/vol/v/a|E:\\|SAME00000001", first.Summary());
    TakeTraceText();

    CResult noMount;
    EXPECT_HR(E_INVALIDARG, BySerial(u"NoMount00001", noMount));
    EXPECT_EQ("(null)|(null)|(null)|NoMount00001", noMount.Summary());
    std::string text = TakeTraceText();
    EXPECT_NE(std::string::npos, text.find("    Source lun does not have mounted drive\n"
                                           "        Free'ing VD_INFO buffer.... \n"
                                           "        Freed mountinfo buffer succesfully.\n"));

    // An empty mount point is an empty drive, not a missing one.
    CResult emptyMount;
    EXPECT_HR(S_OK, BySerial(u"EmptyMount01", emptyMount));
    EXPECT_EQ("fa|/vol/v/d||EmptyMount01", emptyMount.Summary());

    // By path the serial number is handed out before the mount point is missed.
    CResult byPath;
    EXPECT_HR(E_INVALIDARG, ByPath(u"/vol/v/c", byPath));
    EXPECT_EQ("(null)|(null)|(null)|NoMount00001", byPath.Summary());

    // A host without any disk of the service: nothing is found, and the empty list is cached.
    ASSERT_HR(S_OK,
              storagesim::InitializeState(R"({"filers": [{"name": "fa", "volumes": []}]})", ""));
    SetVDCacheFalse();
    CResult nothing;
    EXPECT_HR(S_OK, BySerial(u"SAME00000001", nothing));
    EXPECT_EQ("(null)|(null)|(null)|SAME00000001", nothing.Summary());
    TakeTraceText();
    SetVDCacheFalse();
    EXPECT_EQ("    Free'ing VD_INFO buffer.... \n    Freed mountinfo buffer succesfully.\n",
              TakeTraceText());
}

TEST_F(VdCacheTest, ADiskAddedAfterTheCacheIsFilledIsFoundOnlyAfterInvalidation)
{
    CResult before;
    ASSERT_HR(S_OK, BySerial(u"HnLmC0DH4Rdx", before));
    ASSERT_HR(S_OK, storagesim::InitializeState(kTopology, ""));
    CResult stale;
    ASSERT_HR(S_OK, BySerial(u"SAME00000001", stale));
    EXPECT_EQ("(null)|(null)|(null)|SAME00000001", stale.Summary());
    SetVDCacheFalse();
    CResult fresh;
    ASSERT_HR(S_OK, BySerial(u"SAME00000001", fresh));
    EXPECT_EQ("fa|/vol/v/a|E:\\|SAME00000001", fresh.Summary());
}

TEST_F(VdCacheTest, FailuresDropTheCache)
{
    // Neither key.
    LPWSTR pszSerial = nullptr, pszPath = nullptr, pszFiler = nullptr, pszDrive = nullptr;
    EXPECT_HR(E_INVALIDARG, VerifyLun(&pszSerial, 0, &pszPath, &pszFiler, &pszDrive));
    // No header yet: only the flag is cleared.
    EXPECT_EQ("", TakeTraceText());

    // The service cannot be created.
    pal::InjectFault("CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG));
    CResult r;
    EXPECT_HR(REGDB_E_CLASSNOTREG, BySerial(u"HnLmC0DH4Rdx", r));
    pal::ClearFault("CoCreateInstance");
    EXPECT_EQ("        CoCreateInstance for IVSSSupport FAILED [hr=0x80040154]\n"
              "    GetVssSupport FAILED [hr=0x80040154]\n"
              "        Freed mountinfo buffer succesfully.\n",
              TakeTraceText());
    IHyperVSupport* pHyperV = reinterpret_cast<IHyperVSupport*>(1);
    pal::InjectFault("CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG));
    EXPECT_HR(REGDB_E_CLASSNOTREG, GetHyperVSupport(&pHyperV));
    pal::ClearFault("CoCreateInstance");
    EXPECT_EQ(nullptr, pHyperV);
    EXPECT_EQ("    CoCreateInstance for IHyperVSupport FAILED [hr=0x80040154]\n", TakeTraceText());
    ASSERT_HR(S_OK, GetHyperVSupport(&pHyperV));
    pHyperV->Release();
}

TEST_F(VdCacheTest, EveryAllocationFailureIsOutOfMemoryAndLeavesNothing)
{
    TraceSetLevel(TRACE_LEVEL_ERROR);
    HRESULT hr = E_OUTOFMEMORY;
    ULONG nth = 1;
    for (; nth < 200 && hr != S_OK; nth++) {
        CResult r;
        r.pszSerial = DuplicateSerial(u"HnLmC0DH4Rdz");
        pal::FailTaskAllocAt(nth);
        hr = VerifyLun(&r.pszSerial, 0, &r.pszLunPath, &r.pszFiler, &r.pszDrive);
        pal::FailTaskAllocAt(0);
        if (FAILED(hr)) {
            // The service's own allocations fail its enumeration.
            EXPECT_TRUE(hr == E_OUTOFMEMORY || hr == ORVPROV_E_ENUMVDISK_FAILED)
                << orvtest::HexCode(hr) << " at " << nth;
            EXPECT_EQ("(null)|(null)|(null)|HnLmC0DH4Rdz", r.Summary());
        } else {
            EXPECT_EQ("verdane01|/vol/vol2/lun1|G:\\|HnLmC0DH4Rdz", r.Summary());
        }
        SetVDCacheFalse();
    }
    EXPECT_HR(S_OK, hr);
    EXPECT_GT(nth, 20u);
}

} // namespace
