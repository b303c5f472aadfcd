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
using Calls = std::vector<std::string>;
using ServerRegistration = orvtest::ConformanceTest;

Calls g_calls;
HRESULT g_hrSecondClass = S_OK;

// A class of the map whose UpdateRegistry records "<n>+" or "<n>-"; the second one answers
// g_hrSecondClass.
template <int n>
struct CRecorded : orvtest::com::CWidget
{
    static HRESULT WINAPI UpdateRegistry(BOOL bRegister)
    {
        g_calls.push_back(std::to_string(n) + (bRegister ? "+" : "-"));
        return n == 2 ? g_hrSecondClass : S_OK;
    }
};
// A class registered by its registry script, through a module that writes (here records) it.
struct CScripted : orvtest::com::CWidget
{
    DECLARE_REGISTRY_RESOURCEID(101)
};
struct CServerModule : CComModule
{
    HRESULT UpdateRegistryFromResource(UINT nResID, BOOL bRegister) override
    {
        g_calls.push_back("script " + std::to_string(nResID) + (bRegister ? "+" : "-"));
        return S_OK;
    }
};

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

TEST_F(ServerRegistration, EveryClassThenTheTypeLibraryAndBackAgain)
{
    CClassesKeyRemover remover{kLibKey};
    CServerModule module;
    ASSERT_HR(S_OK, module.Init(g_map, GetModuleHandleW(nullptr)));
    EXPECT_HR(S_OK, module.RegisterServer(FALSE, &kSecond));
    EXPECT_EQ(Calls({"2+"}), std::exchange(g_calls, {}));
    EXPECT_FALSE(ClassesKeyExists(kLibKey));

    EXPECT_HR(S_OK, module.RegisterServer(TRUE));
    EXPECT_EQ(Calls({"1+", "2+", "script 101+"}), std::exchange(g_calls, {}));
    EXPECT_EQ(ModulePath(), ClassesValue(kVersionKey + W("\\0\\win64")));
    EXPECT_HR(S_OK, module.UnregisterServer(TRUE));
    EXPECT_EQ(Calls({"1-", "2-", "script 101-"}), std::exchange(g_calls, {}));
    EXPECT_FALSE(ClassesKeyExists(kLibKey));

    // A failing class stops the registration, the type library's included, but not the
    // unregistration.
    g_hrSecondClass = E_ACCESSDENIED;
    EXPECT_HR(E_ACCESSDENIED, module.RegisterServer(TRUE));
    EXPECT_EQ(Calls({"1+", "2+"}), std::exchange(g_calls, {}));
    EXPECT_FALSE(ClassesKeyExists(kLibKey));
    EXPECT_HR(E_ACCESSDENIED, module.UnregisterServer(FALSE));
    EXPECT_EQ(Calls({"1-", "2-", "script 101-"}), std::exchange(g_calls, {}));
    g_hrSecondClass = S_OK;

    // The subset has no registrar: a module that writes no keys cannot register a script.
    CComModule plain;
    EXPECT_HR(E_NOTIMPL, CScripted::UpdateRegistry(TRUE));
}

} // namespace
