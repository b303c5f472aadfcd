// Conformance of RegOpenKeyExW, RegCreateKeyExW, RegCloseKey, RegDeleteKeyW(Ex) and
// RegDeleteTreeW.
#include "tests/pal/registry/registry_fixture.h"

#include <string>

namespace {

using orvtest::registry::DwordBytes;
using orvtest::registry::kTestKey;
using orvtest::registry::QueryInfo;
using orvtest::registry::ScopedKey;
using orvtest::registry::StringBytes;
using RegistryKeysTest = orvtest::registry::RegistryConformanceTest;

TEST_F(RegistryKeysTest, PredefinedRootsAndRightsHaveTheirWindowsValues)
{
    EXPECT_EQ(0xFFFFFFFF80000000ull, reinterpret_cast<ULONG_PTR>(HKEY_CLASSES_ROOT));
    EXPECT_EQ(0xFFFFFFFF80000001ull, reinterpret_cast<ULONG_PTR>(HKEY_CURRENT_USER));
    EXPECT_EQ(0xFFFFFFFF80000002ull, reinterpret_cast<ULONG_PTR>(HKEY_LOCAL_MACHINE));
    EXPECT_EQ(0x20019u, DWORD(KEY_READ));
    EXPECT_EQ(0x20006u, DWORD(KEY_WRITE));
    EXPECT_EQ(0xF003Fu, DWORD(KEY_ALL_ACCESS));
}

TEST_F(RegistryKeysTest, CreateAndOpenDispositionsAndResults)
{
    ScopedKey key;
    DWORD dwDisposition = 0;
    ASSERT_EQ(ERROR_SUCCESS, CreateKey(Base(), W("Fresh"), key.Out(), &dwDisposition,
                                       REG_OPTION_NON_VOLATILE, KEY_READ));
    EXPECT_EQ(DWORD(REG_CREATED_NEW_KEY), dwDisposition);
    ASSERT_EQ(ERROR_SUCCESS, CreateKey(Base(), W("FRESH"), key.Out(), &dwDisposition, 0, KEY_READ));
    EXPECT_EQ(DWORD(REG_OPENED_EXISTING_KEY), dwDisposition);

    ASSERT_EQ(ERROR_SUCCESS, CreateKey(Base(), W("A\\B\\C\\"), key.Out(), &dwDisposition));
    EXPECT_EQ(DWORD(REG_CREATED_NEW_KEY), dwDisposition);
    EXPECT_TRUE(KeyExists(Base(), W("A")));
    EXPECT_TRUE(KeyExists(Base(), W("A\\B")));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, W("Software\\OrvTest\\A\\B\\C")));

    ASSERT_EQ(ERROR_SUCCESS, CreateKey(Base(), W(""), key.Out())) << "an empty subkey is the key";
    ASSERT_EQ(ERROR_SUCCESS, SetDword(key, W("Through"), 7));
    EXPECT_EQ(DwordBytes(7), GetBytes(Base(), W("Through")));

    HKEY hKey = reinterpret_cast<HKEY>(0x1234);
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, OpenKey(Base(), W("Missing"), &hKey));
    EXPECT_EQ(nullptr, hKey);
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, OpenKey(Base(), W("Missing\\Deeper"), &hKey));
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(HKEY_LOCAL_MACHINE, nullptr, &hKey));
    EXPECT_EQ(HKEY_LOCAL_MACHINE, hKey) << "a predefined key opens as itself";
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), W(""), key.Out()));
    EXPECT_NE(Base(), key.Get()) << "another key gets a new handle";
}

TEST_F(RegistryKeysTest, NamesFoldCaseKeepTheirSpellingAndRefuseALeadingBackslash)
{
    RegCloseKey(Create(W("MixedCase")));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, W("SOFTWARE\\orvtest\\mixedCASE")));
    WCHAR name[64];
    DWORD cch = ARRAYSIZE(name);
    ASSERT_EQ(ERROR_SUCCESS,
              RegEnumKeyExW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(orvtest::WString(W("MixedCase")), orvtest::WString(name, cch));
    RegCloseKey(Create(W("\u00e9t\u00e9")));
    EXPECT_TRUE(KeyExists(Base(), W("\u00c9T\u00c9"))) << "accented letters fold too";
    ScopedKey longest(Create(orvtest::WString(255, W('k')).c_str()));
    EXPECT_NE(nullptr, longest.Get());

    ScopedKey key;
    EXPECT_WIN32(ERROR_BAD_PATHNAME,
                 CreateKey(Base(), W("\\Lead"), key.Out(), nullptr, 0, KEY_READ));
    EXPECT_WIN32(ERROR_BAD_PATHNAME, OpenKey(Base(), W("\\Lead"), key.Out()));
}

TEST_F(RegistryKeysTest, BadArgumentsAndHandles)
{
    ScopedKey key;
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, OpenKey(Base(), W("x"), nullptr));
    HKEY bogus = reinterpret_cast<HKEY>(0x7777);
    EXPECT_WIN32(ERROR_INVALID_HANDLE, OpenKey(bogus, W("x"), key.Out()));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegCloseKey(bogus));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegCloseKey(nullptr));

    HKEY hKey = Create(W("Closing"));
    ASSERT_EQ(ERROR_SUCCESS, RegCloseKey(hKey));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegCloseKey(hKey));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, SetDword(hKey, W("v"), 1));
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(HKEY_LOCAL_MACHINE));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, kTestKey)) << "HKLM still works after closing";
}

TEST_F(RegistryKeysTest, ClassesRootIsUnderTheMachineAndCurrentUserIsApart)
{
    ScopedKey viaRoot, viaMachine, user;
    ASSERT_EQ(ERROR_SUCCESS, CreateKey(HKEY_CLASSES_ROOT, W("OrvTest\\{1234}"), viaRoot.Out()));
    ASSERT_EQ(ERROR_SUCCESS, SetString(viaRoot, nullptr, W("Orvane provider")));
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(HKEY_LOCAL_MACHINE, W("Software\\Classes\\OrvTest\\{1234}"),
                                     viaMachine.Out()));
    EXPECT_EQ(StringBytes(W("Orvane provider")), GetBytes(viaMachine, nullptr));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteTreeW(HKEY_CLASSES_ROOT, W("OrvTest")));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, W("Software\\Classes\\OrvTest")));

    ASSERT_EQ(ERROR_SUCCESS, CreateKey(HKEY_CURRENT_USER, kTestKey, user.Out()));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(user, W("Where"), 1));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, Query(Base(), W("Where")));
}

TEST_F(RegistryKeysTest, DeleteKeyRefusesSubkeysAndTakesTheValues)
{
    RegCloseKey(Create(W("Parent\\Child")));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteKeyW(Base(), W("Parent")));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteKeyExW(Base(), W("Parent"), KEY_WOW64_64KEY, 0));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteKeyExW(Base(), W("Parent\\Child"), KEY_WOW64_64KEY, 0));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), W("parent")));
    EXPECT_FALSE(KeyExists(Base(), W("Parent")));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, RegDeleteKeyW(Base(), W("Parent")));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, RegDeleteKeyW(Base(), nullptr));

    {
        ScopedKey key(Create(W("WithValues")));
        ASSERT_EQ(ERROR_SUCCESS, SetDword(key, W("v"), 1));
        ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(key, W(""))) << "an empty name is the key itself";
    }
    EXPECT_FALSE(KeyExists(Base(), W("WithValues")));
    ScopedKey again(Create(W("WithValues")));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, Query(again, W("v")));
}

TEST_F(RegistryKeysTest, OpenHandlesOfADeletedKeyReportKeyDeleted)
{
    ScopedKey key(Create(W("Doomed")));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), W("Doomed")));
    EXPECT_WIN32(ERROR_KEY_DELETED, SetDword(key, W("v"), 1));
    EXPECT_WIN32(ERROR_KEY_DELETED, Query(key, W("v")));
    ScopedKey recreated(Create(W("Doomed")));
    EXPECT_WIN32(ERROR_KEY_DELETED, SetDword(key, W("v"), 1))
        << "a new key of that name is another";
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(key.Release()));
}

TEST_F(RegistryKeysTest, DeleteTreeRemovesTheSubtreeOrEmptiesTheKey)
{
    {
        ScopedKey deep(Create(W("Tree\\A\\B")));
        ASSERT_EQ(ERROR_SUCCESS, SetDword(deep, W("v"), 1));
        RegCloseKey(Create(W("Tree\\C")));
    }
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(Base(), W("Tree")));
    EXPECT_FALSE(KeyExists(Base(), W("Tree")));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, RegDeleteTreeW(Base(), W("Tree")));

    ScopedKey tree(Create(W("Emptied")));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(tree, W("v"), 1));
    RegCloseKey(Create(W("Sub\\Deeper"), tree));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(tree, nullptr));
    EXPECT_TRUE(KeyExists(Base(), W("Emptied")));
    auto info = QueryInfo(tree);
    ASSERT_EQ(ERROR_SUCCESS, info.status);
    EXPECT_EQ(0u, info.cSubKeys);
    EXPECT_EQ(0u, info.cValues);
}

TEST_F(RegistryKeysTest, RightsOfTheHandleDecide)
{
    const struct
    {
        REGSAM sam;
        bool fQuery, fSet, fEnumerate, fNotify;
    } cases[] = {
        {KEY_READ, true, false, true, true},
        {KEY_WRITE, false, true, false, false},
        {KEY_ALL_ACCESS, true, true, true, true},
        {KEY_QUERY_VALUE, true, false, false, false},
        {KEY_SET_VALUE, false, true, false, false},
        {KEY_NOTIFY, false, false, false, true},
        {KEY_ENUMERATE_SUB_KEYS, false, false, true, false},
        {GENERIC_READ, true, false, true, true},
        {MAXIMUM_ALLOWED, true, true, true, true},
    };
    auto expect = [](bool fAllowed) { return fAllowed ? ERROR_SUCCESS : ERROR_ACCESS_DENIED; };
    RegCloseKey(Create(W("Rights")));
    HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (const auto& c : cases) {
        SCOPED_TRACE(orvtest::HexCode(c.sam));
        ScopedKey key;
        ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), W("Rights"), key.Out(), c.sam));
        EXPECT_WIN32(expect(c.fSet), SetDword(key, W("v"), 1));
        LONG query = Query(key, W("v"));
        if (c.fQuery) {
            EXPECT_TRUE(query == ERROR_SUCCESS || query == ERROR_FILE_NOT_FOUND) << query;
        } else {
            EXPECT_WIN32(ERROR_ACCESS_DENIED, query);
        }
        WCHAR name[8];
        DWORD cch = ARRAYSIZE(name);
        EXPECT_WIN32(c.fEnumerate ? ERROR_NO_MORE_ITEMS : ERROR_ACCESS_DENIED,
                     RegEnumKeyExW(key, 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
        EXPECT_WIN32(expect(c.fNotify),
                     RegNotifyChangeKeyValue(key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, hEvent, TRUE));
    }
    CloseHandle(hEvent);

    ScopedKey readOnly, child;
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), W("Rights"), readOnly.Out()));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteValueW(readOnly, W("v")));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(readOnly, nullptr));
    DWORD dwDisposition = 0;
    EXPECT_EQ(ERROR_SUCCESS, CreateKey(readOnly, W("Inner"), child.Out(), &dwDisposition))
        << "creating a subkey needs no right on the parent handle";
    EXPECT_EQ(DWORD(REG_CREATED_NEW_KEY), dwDisposition);
    EXPECT_EQ(ERROR_SUCCESS, CreateKey(readOnly, W("Inner"), child.Out(), &dwDisposition))
        << "nor does opening one";
    EXPECT_EQ(DWORD(REG_OPENED_EXISTING_KEY), dwDisposition);
    EXPECT_EQ(ERROR_SUCCESS, SetDword(child, W("v"), 1)) << "the new handle has its own rights";
}

TEST_F(RegistryKeysTest, VolatileKeysAndClasses)
{
    ScopedKey key, child;
    ASSERT_EQ(ERROR_SUCCESS,
              CreateKey(Base(), W("Volatile"), key.Out(), nullptr, REG_OPTION_VOLATILE));
    EXPECT_WIN32(ERROR_CHILD_MUST_BE_VOLATILE,
                 CreateKey(key, W("Stable"), child.Out(), nullptr, REG_OPTION_NON_VOLATILE));
    EXPECT_EQ(ERROR_SUCCESS,
              CreateKey(key, W("Fleeting"), child.Out(), nullptr, REG_OPTION_VOLATILE));

    WCHAR className[] = W("OrvClass");
    ASSERT_EQ(ERROR_SUCCESS,
              CreateKey(Base(), W("Classy"), key.Out(), nullptr, 0, KEY_ALL_ACCESS, className));
    WCHAR buffer[32];
    DWORD cch = ARRAYSIZE(buffer);
    ASSERT_EQ(ERROR_SUCCESS, RegQueryInfoKeyW(key, buffer, &cch, nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(orvtest::WString(W("OrvClass")), orvtest::WString(buffer, cch));
    cch = 3;
    EXPECT_WIN32(ERROR_INSUFFICIENT_BUFFER,
                 RegQueryInfoKeyW(key, buffer, &cch, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(8u, cch);
}

} // namespace
