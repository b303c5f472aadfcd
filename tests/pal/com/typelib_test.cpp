// Type libraries, the pal alone: automation interfaces' registration, where Wine departs from
// Windows, registry and allocation failures, damaged libraries.
#include "pal/atlbase.h"
#include "pal/palcontrol.h"
#include "res/typelib.h"
#include "tests/pal/com/typelib_testing.h"
#include "tests/support/paltest.h"

#include <vector>

namespace {

using namespace orvtest::typelib;
using orvtest::WString;
using TypeLibPal = orvtest::PalTest;

// tests/pal/com/data/automation.idl. Wine writes the same keys for it.
TEST_F(TypeLibPal, AutomationInterfacesAreRegisteredWithTheirMarshalers)
{
    const WString path = orvtest::Wide(ORV_AUTOMATION_TLB);
    const WString libKey = W("TypeLib\\{7A3E1C52-0B9D-4F6E-8C21-5D4A3B2C1E00}");
    const WString automation = W("{00020424-0000-0000-C000-000000000046}"), none = W("<missing>");
    ITypeLib* ptl = nullptr;
    ASSERT_HR(S_OK, LoadTypeLibEx(path.c_str(), REGKIND_REGISTER, &ptl));
    ptl->Release();
    EXPECT_EQ(W("AutomationTestLib"), ClassesValue(libKey + W("\\2.a"))) << "titled by its name";
    EXPECT_EQ(path, ClassesValue(libKey + W("\\2.a\\0\\win64")));

    const struct
    {
        WString iid, name, proxy;
    } rows[] = {{W("{7A3E1C52-0B9D-4F6E-8C21-5D4A3B2C1E01}"), W("IAutomated"), automation},
                {W("{7A3E1C52-0B9D-4F6E-8C21-5D4A3B2C1E02}"), none, none},
                {W("{7A3E1C52-0B9D-4F6E-8C21-5D4A3B2C1E03}"), W("DEvents"),
                 W("{00020420-0000-0000-C000-000000000046}")},
                {W("{7A3E1C52-0B9D-4F6E-8C21-5D4A3B2C1E04}"), W("IDualThing"), automation}};
    for (const auto& row : rows) {
        const WString key = W("Interface\\") + row.iid;
        EXPECT_EQ(row.name, ClassesValue(key));
        EXPECT_EQ(row.proxy, ClassesValue(key + W("\\ProxyStubClsid")));
        EXPECT_EQ(row.proxy, ClassesValue(key + W("\\ProxyStubClsid32")));
        EXPECT_EQ(row.name == none ? none : libKey.substr(8), ClassesValue(key + W("\\TypeLib")));
        EXPECT_EQ(row.name == none ? none : W("2.a"),
                  ClassesValue(key + W("\\TypeLib"), W("Version")));
    }

    const GUID libid = {0x7A3E1C52, 0x0B9D, 0x4F6E, {0x8C, 0x21, 0x5D, 0x4A, 0x3B, 0x2C, 0x1E, 0}};
    EXPECT_HR(S_OK, UnRegisterTypeLib(libid, 2, 10, 0, SYS_WIN64));
    for (const auto& row : rows)
        EXPECT_FALSE(ClassesKeyExists(W("Interface\\") + row.iid));
    EXPECT_FALSE(ClassesKeyExists(libKey));
}

TEST_F(TypeLibPal, WhereWineDepartsFromWindowsAndFailures)
{
    CComPtr<ITypeLib> ptl;
    OrvRegisterTypeLib();
    ASSERT_HR(S_OK, LoadTypeLib(ModulePath().c_str(), &ptl));
    ASSERT_HR(S_OK, RegisterTypeLib(ptl, ModulePath().c_str(), nullptr));
    // Windows writes the flags the library was given, in hexadecimal, as its documentation of
    // the registration says; Wine the loaded library's, with LIBFLAG_FHASDISKIMAGE, in decimal.
    EXPECT_EQ(W("0"), ClassesValue(kVersionKey + W("\\FLAGS")));
    EXPECT_HR(S_OK, UnRegisterTypeLib(LIBID_ORVPROVLib, 1, 0, 0, SYS_WIN64));
    // Windows answers a library that is not registered so, as an ATL server's second
    // unregistration shows; Wine answers E_INVALIDARG.
    EXPECT_HR(TYPE_E_REGISTRYACCESS, UnRegisterTypeLib(LIBID_ORVPROVLib, 1, 0, 0, SYS_WIN64));

    pal::InjectFault("RegCreateKeyExW", ERROR_ACCESS_DENIED);
    EXPECT_HR(TYPE_E_REGISTRYACCESS, RegisterTypeLib(ptl, ModulePath().c_str(), nullptr));
    BSTR name = nullptr, doc = nullptr;
    pal::FailTaskAllocAt(2);
    EXPECT_HR(STG_E_INSUFFICIENTMEMORY, ptl->GetDocumentation(-1, &name, &doc, nullptr, nullptr));
    EXPECT_TRUE(name == nullptr && doc == nullptr) << "nothing is handed out";
}

TEST_F(TypeLibPal, DamagedLibrariesAreRefusedWithoutReadingPastThem)
{
    // Every shorter copy of the program's library, in a block of its own size, so that
    // AddressSanitizer sees a read past it. Only a copy that keeps every table read loads.
    const WString second = ModulePath() + W("\\2");
    size_t cLoaded = 0;
    for (size_t cb = 1; cb < g_cbOrvTypeLib; ++cb) {
        std::vector<BYTE> copy(g_rgbOrvTypeLib, g_rgbOrvTypeLib + cb);
        PalRegisterResource(ORV_TYPELIB_RESOURCE_TYPE, 2, copy.data(), DWORD(cb));
        CComPtr<ITypeLib> ptl;
        HRESULT hr = LoadTypeLibEx(second.c_str(), REGKIND_NONE, &ptl);
        EXPECT_TRUE(hr == S_OK || hr == TYPE_E_CANTLOADLIBRARY) << cb << " bytes";
        cLoaded += hr == S_OK;
    }
    PalRegisterResource(ORV_TYPELIB_RESOURCE_TYPE, 2, nullptr, 0);
    EXPECT_LT(cLoaded, g_cbOrvTypeLib / 2);
    ITypeLib* ptl = nullptr;
    EXPECT_HR(TYPE_E_CANTLOADLIBRARY, LoadTypeLibEx(W("/"), REGKIND_NONE, &ptl)) << "a directory";
}

} // namespace
