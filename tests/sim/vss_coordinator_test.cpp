// The simulated VSS coordinator as a provider's setup and vssadmin reach it: registration and
// its refusals, the query's records and their strings, the caller's rights, injected faults.
#include "sim/vss/vsssim.h"
#include "tests/support/paltest.h"

#include "pal/atlbase.h"
#include "pal/objbase.h"

#include <filesystem>

namespace {

constexpr GUID kHwId = {0x1111, 0x2222, 0x3333, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr GUID kHwClsid = {0x4444, 0x5555, 0x6666, {8, 7, 6, 5, 4, 3, 2, 1}};
constexpr GUID kHwVersionId = {0x7777, 0, 0, {0, 0, 0, 0, 0, 0, 0, 9}};
constexpr GUID kSwId = {0x8888, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};

std::string Text(const GUID& guid)
{
    WCHAR sz[39];
    StringFromGUID2(guid, sz, 39);
    return orvtest::Narrow(sz);
}

// One record as a line; its strings are freed, so ASan reports any the coordinator leaked.
std::string Take(VSS_OBJECT_PROP& prop)
{
    VSS_PROVIDER_PROP& p = prop.Obj.Prov;
    std::string line = std::to_string(prop.Type) + " " + Text(p.m_ProviderId) + " " +
                       std::to_string(p.m_eProviderType) + " '" +
                       orvtest::Narrow(p.m_pwszProviderName) + "' " +
                       orvtest::Narrow(p.m_pwszProviderVersion) + " " +
                       Text(p.m_ProviderVersionId) + " " + Text(p.m_ClassId);
    CoTaskMemFree(p.m_pwszProviderName);
    CoTaskMemFree(p.m_pwszProviderVersion);
    return line;
}

const std::string kSystemLine = "4 {B5946137-7B9F-4925-AF80-51ABD60B20D5} 1 'Microsoft Software "
                                "Shadow Copy provider 1.0' 1.0.0.7 " +
                                Text(GUID_NULL) + " {65EE1DBA-8FF4-4A58-AC1C-3470EE2F376A}";
const std::string kHwLine = "4 {00001111-2222-3333-0102-030405060708} 3 'Orvane HW' 1.2.0.0 "
                            "{00007777-0000-0000-0000-000000000009} "
                            "{00004444-5555-6666-0807-060504030201}";

class VssCoordinatorTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_HR(S_OK, m_coordinator.Start());
        ASSERT_HR(S_OK, m_pAdmin.CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL));
    }
    void TearDown() override
    {
        m_pAdmin.Release();
        m_coordinator.Stop();
        CoUninitialize();
        PalTest::TearDown();
    }

    HRESULT RegisterHw()
    {
        return m_pAdmin->RegisterProvider(kHwId, kHwClsid, const_cast<WCHAR*>(W("Orvane HW")),
                                          VSS_PROV_HARDWARE, const_cast<WCHAR*>(W("1.2.0.0")),
                                          kHwVersionId);
    }
    // Every record of a new query, read one at a time.
    std::vector<std::string> Query()
    {
        CComPtr<IVssEnumObject> pEnum;
        EXPECT_HR(S_OK, m_pAdmin->QueryProviders(&pEnum));
        std::vector<std::string> lines;
        VSS_OBJECT_PROP prop;
        ULONG cFetched = 0;
        while (pEnum && pEnum->Next(1, &prop, &cFetched) == S_OK && cFetched == 1)
            lines.push_back(Take(prop));
        return lines;
    }

    vsssim::CVssCoordinator m_coordinator;
    CComPtr<IVssAdmin> m_pAdmin;
};

TEST_F(VssCoordinatorTest, RegisteredProvidersFollowTheSystemProviderUntilUnregistered)
{
    EXPECT_EQ(std::vector<std::string>{kSystemLine}, Query());
    ASSERT_HR(S_OK, RegisterHw());
    ASSERT_HR(S_OK,
              m_pAdmin->RegisterProvider(kSwId, kHwClsid, const_cast<WCHAR*>(W("")),
                                         VSS_PROV_SOFTWARE, const_cast<WCHAR*>(W("")), GUID_NULL));
    std::vector<std::string> expected{kSystemLine, kHwLine,
                                      "4 " + Text(kSwId) + " 2 ''  " + Text(GUID_NULL) + " " +
                                          Text(kHwClsid)};
    EXPECT_EQ(expected, Query());
    EXPECT_HR(S_OK, m_pAdmin->UnregisterProvider(kSwId));
    EXPECT_HR(VSS_E_PROVIDER_NOT_REGISTERED, m_pAdmin->UnregisterProvider(kSwId));
    expected.pop_back();
    EXPECT_EQ(expected, Query());
}

TEST_F(VssCoordinatorTest, RefusedRegistrationsChangeNothing)
{
    ASSERT_HR(S_OK, RegisterHw());
    struct Row
    {
        const char* what;
        VSS_ID id;
        const WCHAR* name;
        VSS_PROVIDER_TYPE type;
        const WCHAR* version;
        BYTE productType;
        HRESULT hr;
    } rows[] = {
        {"the same id", kHwId, W("x"), VSS_PROV_SOFTWARE, W("1"), 3,
         VSS_E_PROVIDER_ALREADY_REGISTERED},
        {"the system provider's id", vsssim::kSystemProviderId, W("x"), VSS_PROV_SOFTWARE, W("1"),
         3, VSS_E_PROVIDER_ALREADY_REGISTERED},
        {"no name", kSwId, nullptr, VSS_PROV_SOFTWARE, W("1"), 3, E_INVALIDARG},
        {"no version", kSwId, W("x"), VSS_PROV_SOFTWARE, nullptr, 3, E_INVALIDARG},
        {"unknown type", kSwId, W("x"), VSS_PROV_UNKNOWN, W("1"), 3, E_INVALIDARG},
        {"system type", kSwId, W("x"), VSS_PROV_SYSTEM, W("1"), 3, E_INVALIDARG},
        {"file share type", kSwId, W("x"), VSS_PROV_FILESHARE, W("1"), 3, E_INVALIDARG},
        {"type out of range", kSwId, W("x"), static_cast<VSS_PROVIDER_TYPE>(7), W("1"), 3,
         E_INVALIDARG},
        {"hardware on a workstation", kSwId, W("x"), VSS_PROV_HARDWARE, W("1"), 1, E_INVALIDARG},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        pal::HostProfile profile;
        profile.wProductType = row.productType;
        pal::SetHostProfile(profile);
        EXPECT_HR(row.hr,
                  m_pAdmin->RegisterProvider(row.id, kHwClsid, const_cast<WCHAR*>(row.name),
                                             row.type, const_cast<WCHAR*>(row.version), GUID_NULL));
        EXPECT_EQ((std::vector<std::string>{kSystemLine, kHwLine}), Query());
    }
}

TEST_F(VssCoordinatorTest, OnlyAdministratorsAreAnswered)
{
    ASSERT_TRUE(pal::SetProcessAccount(u"User"));
    EXPECT_HR(E_ACCESSDENIED, RegisterHw());
    CComPtr<IVssEnumObject> pEnum;
    EXPECT_HR(E_ACCESSDENIED, m_pAdmin->QueryProviders(&pEnum));
    EXPECT_HR(E_ACCESSDENIED, m_pAdmin->UnregisterProvider(kHwId));
    EXPECT_HR(E_ACCESSDENIED, m_pAdmin->AbortAllSnapshotsInProgress());
    ASSERT_TRUE(pal::SetProcessAccount(u"Administrator"));
    EXPECT_HR(S_OK, RegisterHw());
    EXPECT_HR(VSS_E_PROVIDER_NOT_REGISTERED,
              m_pAdmin->UnregisterProvider(vsssim::kSystemProviderId));
    EXPECT_HR(E_INVALIDARG, m_pAdmin->QueryProviders(nullptr));
}

TEST_F(VssCoordinatorTest, NextHandsOutWhatRemainsAndClonesKeepTheirPlace)
{
    ASSERT_HR(S_OK, RegisterHw());
    CComPtr<IVssEnumObject> pEnum;
    ASSERT_HR(S_OK, m_pAdmin->QueryProviders(&pEnum));
    VSS_OBJECT_PROP props[3];
    ULONG cFetched = 7;
    EXPECT_HR(E_POINTER, pEnum->Next(1, nullptr, &cFetched));
    EXPECT_HR(E_POINTER, pEnum->Next(1, props, nullptr));
    EXPECT_HR(S_OK, pEnum->Next(0, props, &cFetched));
    EXPECT_EQ(0u, cFetched);
    EXPECT_HR(S_OK, pEnum->Skip(1));
    CComPtr<IVssEnumObject> pClone;
    ASSERT_HR(S_OK, pEnum->Clone(&pClone));
    EXPECT_HR(S_FALSE, pEnum->Skip(2));
    EXPECT_HR(S_FALSE, pClone->Next(3, props, &cFetched));
    ASSERT_EQ(1u, cFetched);
    EXPECT_EQ(kHwLine, Take(props[0]));
    EXPECT_HR(S_FALSE, pClone->Next(1, props, &cFetched));
    EXPECT_EQ(0u, cFetched);
    EXPECT_HR(S_OK, pEnum->Reset());
    ASSERT_HR(S_OK, pEnum->Next(2, props, &cFetched));
    EXPECT_EQ(kSystemLine, Take(props[0]));
    EXPECT_EQ(kHwLine, Take(props[1]));
}

TEST_F(VssCoordinatorTest, NextThatCannotAllocateHandsOutNothing)
{
    ASSERT_HR(S_OK, RegisterHw());
    CComPtr<IVssEnumObject> pEnum;
    ASSERT_HR(S_OK, m_pAdmin->QueryProviders(&pEnum));
    VSS_OBJECT_PROP props[2];
    ULONG cFetched = 0;
    for (ULONG nth = 1; nth <= 4; ++nth) {
        SCOPED_TRACE(nth);
        pal::FailTaskAllocAt(nth);
        EXPECT_HR(E_OUTOFMEMORY, pEnum->Next(2, props, &cFetched));
        EXPECT_EQ(0u, cFetched);
    }
    pal::FailTaskAllocAt(0);
    ASSERT_HR(S_OK, pEnum->Next(2, props, &cFetched));
    EXPECT_EQ(kSystemLine, Take(props[0]));
    EXPECT_EQ(kHwLine, Take(props[1]));
}

TEST_F(VssCoordinatorTest, InjectedFaultsAnswerTheirCalls)
{
    EXPECT_HR(E_INVALIDARG, vsssim::SetFault("AbortAllSnapshotsInProgress", E_FAIL));
    EXPECT_HR(E_INVALIDARG, vsssim::SetFault("RegisterProvider", E_FAIL, 0));
    ASSERT_HR(S_OK, vsssim::SetFault("RegisterProvider", E_OUTOFMEMORY, 1));
    ASSERT_HR(S_OK, vsssim::SetFault("UnregisterProvider", VSS_E_PROVIDER_IN_USE));
    ASSERT_HR(S_OK, vsssim::SetFault("QueryProviders", VSS_E_UNEXPECTED, 1));
    EXPECT_HR(E_OUTOFMEMORY, RegisterHw());
    EXPECT_HR(S_OK, RegisterHw());
    CComPtr<IVssEnumObject> pEnum;
    EXPECT_HR(VSS_E_UNEXPECTED, m_pAdmin->QueryProviders(&pEnum));
    EXPECT_EQ(nullptr, static_cast<IVssEnumObject*>(pEnum));
    EXPECT_HR(VSS_E_PROVIDER_IN_USE, m_pAdmin->UnregisterProvider(kHwId));
    EXPECT_HR(VSS_E_PROVIDER_IN_USE, m_pAdmin->UnregisterProvider(kHwId));
    EXPECT_EQ((std::vector<std::string>{kSystemLine, kHwLine}), Query());
    ASSERT_HR(S_OK, vsssim::ClearFaults());
    EXPECT_HR(S_OK, m_pAdmin->UnregisterProvider(kHwId));
}

TEST_F(VssCoordinatorTest, AnUnreadableStateIsAnUnexpectedError)
{
    std::filesystem::create_directory(Root() / "vss.db");
    EXPECT_HR(VSS_E_UNEXPECTED, RegisterHw());
    EXPECT_HR(VSS_E_UNEXPECTED, m_pAdmin->UnregisterProvider(kHwId));
}

} // namespace
