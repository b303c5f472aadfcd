// The server module's registration: each class of the object map through its UpdateRegistry,
// then the module file's type library, and back again.
#include "pal/atlbase.h"
#include "pal/atlcom.h"
#include "tests/pal/com/com_testing.h"
#include "tests/pal/com/typelib_testing.h"

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace orvtest::typelib;
using orvtest::WString;
using Calls = std::vector<std::string>;

Calls g_calls;
HRESULT g_hrSecondClass = S_OK;

// A class of the map whose UpdateRegistry records "<n>+" or "<n>-"; the second one answers
// g_hrSecondClass.
template <int n>
class CRecorded : public orvtest::com::CWidget
{
public:
    static HRESULT WINAPI UpdateRegistry(BOOL bRegister)
    {
        g_calls.push_back(std::to_string(n) + (bRegister ? "+" : "-"));
        return n == 2 ? g_hrSecondClass : S_OK;
    }
};
// A class registered by its registry script resource, through the module.
class CScripted : public orvtest::com::CWidget
{
public:
    DECLARE_REGISTRY_RESOURCEID(101)
};

// A module that writes the keys of its classes' scripts itself; here it only records them.
class CServerModule : public CComModule
{
public:
    HRESULT UpdateRegistryFromResource(UINT nResID, BOOL bRegister) override
    {
        g_calls.push_back("script " + std::to_string(nResID) + (bRegister ? "+" : "-"));
        return S_OK;
    }
};

// {5B1E6C0A-7D3F-4E21-9A4B-0C1D2E3F4A7n}
constexpr CLSID MapClsid(BYTE n)
{
    return {0x5B1E6C0A, 0x7D3F, 0x4E21, {0x9A, 0x4B, 0x0C, 0x1D, 0x2E, 0x3F, 0x4A, n}};
}
constexpr CLSID kFirst = MapClsid(0x71), kSecond = MapClsid(0x72), kScripted = MapClsid(0x73);

BEGIN_OBJECT_MAP(g_map)
OBJECT_ENTRY(kFirst, CRecorded<1>)
OBJECT_ENTRY(kSecond, CRecorded<2>)
OBJECT_ENTRY(kScripted, CScripted)
END_OBJECT_MAP()

class ServerRegistration : public orvtest::ConformanceTest
{
protected:
    void SetUp() override
    {
        orvtest::ConformanceTest::SetUp();
        g_calls.clear();
        g_hrSecondClass = S_OK;
        ASSERT_HR(S_OK, m_module.Init(g_map, GetModuleHandleW(nullptr)));
    }
    Calls TakeCalls() { return std::exchange(g_calls, {}); }

    CServerModule m_module;
};

TEST_F(ServerRegistration, EveryClassThenTheTypeLibraryAndBackAgain)
{
    CClassesKeyRemover remover(kLibKey);
    EXPECT_HR(S_OK, m_module.RegisterServer(FALSE, &kSecond));
    EXPECT_EQ(Calls({"2+"}), TakeCalls());
    EXPECT_FALSE(ClassesKeyExists(kLibKey));

    EXPECT_HR(S_OK, m_module.RegisterServer(TRUE));
    EXPECT_EQ(Calls({"1+", "2+", "script 101+"}), TakeCalls());
    const WString module = ModulePath();
    EXPECT_EQ(module, ClassesValue(kVersionKey + W("\\0\\win64")));
    // ATL's help directory is the module's, with its separator.
    EXPECT_EQ(module.substr(0, module.find_last_of(W("\\/")) + 1),
              ClassesValue(kVersionKey + W("\\HELPDIR")));

    EXPECT_HR(S_OK, m_module.UnregisterServer(TRUE));
    EXPECT_EQ(Calls({"1-", "2-", "script 101-"}), TakeCalls());
    EXPECT_FALSE(ClassesKeyExists(kLibKey));

    // The subset has no registrar: a module that does not write the keys cannot register a
    // scripted class.
    CComModule plain;
    EXPECT_HR(E_NOTIMPL, CScripted::UpdateRegistry(TRUE));
}

TEST_F(ServerRegistration, AFailingClassStopsRegistrationButNotUnregistration)
{
    CClassesKeyRemover remover(kLibKey);
    g_hrSecondClass = E_ACCESSDENIED;
    EXPECT_HR(E_ACCESSDENIED, m_module.RegisterServer(TRUE));
    EXPECT_EQ(Calls({"1+", "2+"}), TakeCalls());
    EXPECT_FALSE(ClassesKeyExists(kLibKey)) << "no type library after a failure";

    EXPECT_HR(E_ACCESSDENIED, m_module.UnregisterServer(FALSE));
    EXPECT_EQ(Calls({"1-", "2-", "script 101-"}), TakeCalls());
}

} // namespace
