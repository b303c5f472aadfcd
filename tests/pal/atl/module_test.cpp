// The module's failures, made by the pal's fault hooks: Init's critical section, and a class
// object registration failing midway through the object map.
#include "pal/atlbase.h"
#include "pal/atlcom.h"
#include "tests/pal/com/com_testing.h"
#include "tests/support/paltest.h"

namespace {

// {5B1E6C0A-7D3F-4E21-9A4B-0C1D2E3F4A6n}
constexpr CLSID MapClsid(BYTE n)
{
    return {0x5B1E6C0A, 0x7D3F, 0x4E21, {0x9A, 0x4B, 0x0C, 0x1D, 0x2E, 0x3F, 0x4A, n}};
}
constexpr CLSID kFirst = MapClsid(0x61), kSecond = MapClsid(0x62), kThird = MapClsid(0x63);

BEGIN_OBJECT_MAP(g_map)
OBJECT_ENTRY(kFirst, orvtest::com::CWidget)
OBJECT_ENTRY(kSecond, orvtest::com::CWidget)
OBJECT_ENTRY(kThird, orvtest::com::CWidget)
END_OBJECT_MAP()

using AtlModulePal = orvtest::com::ComTest;

TEST_F(AtlModulePal, FailuresLeaveTheModuleAndTheClassTableAsTheyWere)
{
    CComModule module;
    HINSTANCE h = reinterpret_cast<HINSTANCE>(&module);
    pal::InjectFault("InitializeCriticalSectionAndSpinCount", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY), module.Init(g_map, h));
    EXPECT_TRUE(module.m_pObjMap == nullptr && module.m_hInst == nullptr);
    EXPECT_HR(S_OK, module.RegisterClassObjects(CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    ASSERT_HR(S_OK, module.Init(g_map, h));
    EXPECT_TRUE(module.m_pObjMap == g_map && module.m_hInstResource == h);

    // The third registration fails: the two before it are withdrawn.
    pal::InjectFault("CoRegisterClassObject", DWORD(E_ACCESSDENIED), 3);
    EXPECT_HR(E_ACCESSDENIED, module.RegisterClassObjects(CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
    IWidget* p = nullptr;
    for (const _ATL_OBJMAP_ENTRY* pEntry = g_map; pEntry->pclsid; ++pEntry) {
        EXPECT_EQ(0u, pEntry->dwRegister);
        EXPECT_HR(REGDB_E_CLASSNOTREG,
                  orvtest::com::CreateWidget(CLSCTX_LOCAL_SERVER, &p, *pEntry->pclsid));
    }
}

} // namespace
