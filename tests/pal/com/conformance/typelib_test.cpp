// Type libraries: the program's own TYPELIB 1 (in the Windows image; registered by the fixture on
// Linux, as by the program's entry) loaded from the program's file, read through the SDK's
// vtable slots, registered under HKEY_CLASSES_ROOT as Windows does it, and unregistered.
#include "tests/pal/com/typelib_testing.h"
#include "tests/support/conformance.h"

#include <vector>

namespace {

using namespace orvtest::typelib;
using orvtest::WString;
using TypeLibrary = orvtest::ConformanceTest;

// ITypeLib's methods by their slots in the SDK's order, so that a pal header whose order
// differed would fail here on Linux while Windows checks the same slots.
template <class Result, class... Args>
Result CallSlot(ITypeLib* ptl, size_t slot, Args... args)
{
    auto* vtable = *reinterpret_cast<void***>(ptl);
    using Method = Result(STDMETHODCALLTYPE*)(ITypeLib*, Args...);
    return reinterpret_cast<Method>(vtable[slot])(ptl, args...);
}

TEST_F(TypeLibrary, TheProgramsLibraryReadsAsCompiled)
{
    ITypeLib* ptl = reinterpret_cast<ITypeLib*>(0x1);
    EXPECT_HR(E_INVALIDARG, LoadTypeLib(nullptr, &ptl));
    EXPECT_EQ(reinterpret_cast<ITypeLib*>(0x1), ptl);
    for (const WString& missing : {ModulePath() + W("\\2"), ModulePath() + W(".missing.tlb")})
        EXPECT_HR(TYPE_E_CANTLOADLIBRARY, LoadTypeLibEx(missing.c_str(), REGKIND_NONE, &ptl));
    ASSERT_HR(S_OK, LoadTypeLibEx((ModulePath() + W("\\1")).c_str(), REGKIND_NONE, &ptl));

    TLIBATTR* pAttr = nullptr;
    ASSERT_HR(S_OK, (CallSlot<HRESULT, TLIBATTR**>(ptl, 7, &pAttr)));
    EXPECT_TRUE(IsEqualGUID(LIBID_ORVPROVLib, pAttr->guid));
    EXPECT_EQ((std::vector<DWORD>{0, SYS_WIN64, 1, 0, LIBFLAG_FHASDISKIMAGE}),
              (std::vector<DWORD>{pAttr->lcid, DWORD(pAttr->syskind), pAttr->wMajorVerNum,
                                  pAttr->wMinorVerNum, pAttr->wLibFlags}));
    CallSlot<void, TLIBATTR*>(ptl, 12, pAttr);

    // The library, its coclass and interface, and IUnknown and GUID, which it describes itself.
    const struct
    {
        INT index;
        TYPEKIND kind;
        WString name, doc;
    } rows[] = {
        {-1, TKIND_MAX, W("ORVPROVLib"), W("orvprov 1.0 Type Library")},
        {0, TKIND_COCLASS, W("OrvaneHardwareProvider"), W("OrvaneHardwareProvider Class")},
        {1, TKIND_INTERFACE, W("IOrvaneHardwareProvider"), W("IOrvaneHardwareProvider Interface")},
        {2, TKIND_INTERFACE, W("IUnknown"), W("<none>")},
        {3, TKIND_RECORD, W("_GUID"), W("<none>")}};
    EXPECT_EQ(4u, CallSlot<UINT>(ptl, 3));
    for (const auto& row : rows) {
        TYPEKIND kind = TKIND_MAX;
        BSTR name = nullptr, doc = nullptr, helpFile = nullptr;
        DWORD dwContext = 1;
        // Index -1 names no type description; as UINT it is past the last.
        EXPECT_HR(row.index >= 0 ? S_OK : TYPE_E_ELEMENTNOTFOUND,
                  (CallSlot<HRESULT, UINT, TYPEKIND*>(ptl, 5, UINT(row.index), &kind)));
        EXPECT_HR(S_OK, (CallSlot<HRESULT, INT, BSTR*, BSTR*, DWORD*, BSTR*>(
                            ptl, 9, row.index, &name, &doc, &dwContext, &helpFile)));
        EXPECT_EQ(row.kind, kind);
        EXPECT_EQ(row.name, WString(name));
        EXPECT_EQ(row.doc, doc ? WString(doc) : W("<none>"));
        EXPECT_TRUE(dwContext == 0 && helpFile == nullptr) << orvtest::Narrow(row.name);
        SysFreeString(name);
        SysFreeString(doc);
    }
    EXPECT_HR(TYPE_E_ELEMENTNOTFOUND, ptl->GetDocumentation(4, nullptr, nullptr, nullptr, nullptr));
    ptl->Release();
}

TEST_F(TypeLibrary, RegistrationWritesWindowsKeysAndUnregistrationRemovesThem)
{
    CClassesKeyRemover remover{kLibKey};
    const WString module = ModulePath();
    ITypeLib* ptl = nullptr;
    ASSERT_HR(S_OK, LoadTypeLibEx(module.c_str(), REGKIND_NONE, &ptl));
    EXPECT_HR(E_INVALIDARG, RegisterTypeLib(ptl, nullptr, nullptr));
    EXPECT_HR(E_INVALIDARG, UnRegisterTypeLib(LIBID_ORVPROVLib, 1, 0, 0, SYS_MAC));

    // A help directory as given; without one, the library's own directory.
    for (const WCHAR* pszHelpDir : {W("C:\\Program Files\\Orvane\\Help"), (const WCHAR*)nullptr}) {
        ASSERT_HR(S_OK, RegisterTypeLib(ptl, const_cast<WCHAR*>(module.c_str()),
                                        const_cast<WCHAR*>(pszHelpDir)));
        EXPECT_EQ(W("orvprov 1.0 Type Library"), ClassesValue(kVersionKey));
        EXPECT_EQ(module, ClassesValue(kVersionKey + W("\\0\\win64")));
        EXPECT_EQ(pszHelpDir ? WString(pszHelpDir)
                             : module.substr(0, module.find_last_of(W("\\/"))),
                  ClassesValue(kVersionKey + W("\\HELPDIR")));
        // The custom interface is not registered (the whole tree of keys is the provider
        // program's test's).
        EXPECT_FALSE(ClassesKeyExists(W("Interface\\{8B8069D5-CD33-4E9D-AF11-BD3875976A3F}")));
        EXPECT_HR(S_OK, UnRegisterTypeLib(LIBID_ORVPROVLib, 1, 0, 0, SYS_WIN64));
        EXPECT_FALSE(ClassesKeyExists(kLibKey));
    }

    // A registration whose file is gone stays: only the library says which keys are its.
    const WCHAR* pszGone = W("C:\\Missing\\orvprov.tlb");
    ASSERT_HR(S_OK, RegisterTypeLib(ptl, const_cast<WCHAR*>(pszGone), nullptr));
    EXPECT_HR(TYPE_E_INVALIDSTATE, UnRegisterTypeLib(LIBID_ORVPROVLib, 1, 0, 0, SYS_WIN64));
    EXPECT_EQ(pszGone, ClassesValue(kVersionKey + W("\\0\\win64")));
    ptl->Release();
}

} // namespace
