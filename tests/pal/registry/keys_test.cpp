// Conformance of RegOpenKeyExW, RegCreateKeyExW, RegCloseKey, RegDeleteKeyW(Ex) and
// RegDeleteTreeW.
#include "tests/pal/registry/registry_testing.h"

#include <string>

namespace {

using orvtest::registry::DwordBytes;
using orvtest::registry::kTestKey;
using orvtest::registry::QueryInfo;
using orvtest::registry::ScopedKey;
using orvtest::registry::StringBytes;
using RegistryKeysTest = orvtest::registry::RegistryTest;

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
    ASSERT_EQ(ERROR_SUCCESS, CreateKey(Base(), u"Fresh", key.Out(), &dwDisposition,
                                       REG_OPTION_NON_VOLATILE, KEY_READ));
    EXPECT_EQ(DWORD(REG_CREATED_NEW_KEY), dwDisposition);
    ASSERT_EQ(ERROR_SUCCESS, CreateKey(Base(), u"FRESH", key.Out(), &dwDisposition, 0, KEY_READ));
    EXPECT_EQ(DWORD(REG_OPENED_EXISTING_KEY), dwDisposition);

    ASSERT_EQ(ERROR_SUCCESS, CreateKey(Base(), u"A\\B\\C\\", key.Out(), &dwDisposition));
    EXPECT_EQ(DWORD(REG_CREATED_NEW_KEY), dwDisposition);
    EXPECT_TRUE(KeyExists(Base(), u"A"));
    EXPECT_TRUE(KeyExists(Base(), u"A\\B"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\OrvTest\\A\\B\\C"));

    ASSERT_EQ(ERROR_SUCCESS, CreateKey(Base(), u"", key.Out(), &dwDisposition));
    EXPECT_EQ(DWORD(REG_OPENED_EXISTING_KEY), dwDisposition) << "an empty subkey is the key";
    ASSERT_EQ(ERROR_SUCCESS, SetDword(key, u"Through", 7));
    EXPECT_EQ(DwordBytes(7), GetBytes(Base(), u"Through"));

    HKEY hKey = reinterpret_cast<HKEY>(0x1234);
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, OpenKey(Base(), u"Missing", &hKey));
    EXPECT_EQ(nullptr, hKey);
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, OpenKey(Base(), u"Missing\\Deeper", &hKey));
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(HKEY_LOCAL_MACHINE, nullptr, &hKey));
    EXPECT_EQ(HKEY_LOCAL_MACHINE, hKey) << "a predefined key opens as itself";
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), u"", key.Out()));
    EXPECT_NE(Base(), key.Get()) << "another key gets a new handle";
}

TEST_F(RegistryKeysTest, NamesFoldCaseKeepTheirSpellingAndObeyTheLimits)
{
    RegCloseKey(Create(u"MixedCase"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, u"SOFTWARE\\orvtest\\mixedCASE"));
    WCHAR name[64];
    DWORD cch = ARRAYSIZE(name);
    ASSERT_EQ(ERROR_SUCCESS,
              RegEnumKeyExW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(std::u16string(u"MixedCase"), std::u16string(name, cch));
    RegCloseKey(Create(u"\u00e9t\u00e9"));
    EXPECT_TRUE(KeyExists(Base(), u"\u00c9T\u00c9")) << "accented letters fold too";
    ScopedKey longest(Create(std::u16string(255, u'k').c_str()));
    EXPECT_NE(nullptr, longest.Get());

    const struct
    {
        std::u16string path;
        LONG expected;
    } cases[] = {{u"\\Lead", ERROR_BAD_PATHNAME},
                 {u"A\\\\B", ERROR_BAD_PATHNAME},
                 {std::u16string(256, u'k'), ERROR_INVALID_PARAMETER}};
    for (const auto& c : cases) {
        SCOPED_TRACE(orvtest::Narrow(c.path.substr(0, 8)));
        ScopedKey key;
        EXPECT_WIN32(c.expected,
                     CreateKey(Base(), c.path.c_str(), key.Out(), nullptr, 0, KEY_READ));
        EXPECT_WIN32(c.expected, OpenKey(Base(), c.path.c_str(), key.Out()));
    }
}

TEST_F(RegistryKeysTest, BadArgumentsAndHandles)
{
    ScopedKey key;
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, OpenKey(Base(), u"x", nullptr));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, CreateKey(Base(), nullptr, key.Out()));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, CreateKey(Base(), u"x", key.Out(), nullptr, 0x1000));
    EXPECT_WIN32(ERROR_NOT_SUPPORTED,
                 CreateKey(Base(), u"x", key.Out(), nullptr, REG_OPTION_BACKUP_RESTORE));
    HKEY bogus = reinterpret_cast<HKEY>(0x7777);
    EXPECT_WIN32(ERROR_INVALID_HANDLE, OpenKey(bogus, u"x", key.Out()));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegCloseKey(bogus));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegCloseKey(nullptr));

    HKEY hKey = Create(u"Closing");
    ASSERT_EQ(ERROR_SUCCESS, RegCloseKey(hKey));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegCloseKey(hKey));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, SetDword(hKey, u"v", 1));
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(HKEY_LOCAL_MACHINE));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, kTestKey)) << "HKLM still works after closing";
}

TEST_F(RegistryKeysTest, ClassesRootCurrentUserAndTheDatabase)
{
    ScopedKey viaRoot, viaMachine, user;
    ASSERT_EQ(ERROR_SUCCESS, CreateKey(HKEY_CLASSES_ROOT, u"CLSID\\{1234}", viaRoot.Out()));
    ASSERT_EQ(ERROR_SUCCESS, SetString(viaRoot, nullptr, u"Orvane provider"));
    ASSERT_EQ(ERROR_SUCCESS,
              OpenKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\CLSID\\{1234}", viaMachine.Out()));
    EXPECT_EQ(StringBytes(u"Orvane provider"), GetBytes(viaMachine, nullptr));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteTreeW(HKEY_CLASSES_ROOT, u"CLSID"));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\Classes\\CLSID"));

    ASSERT_EQ(ERROR_SUCCESS, CreateKey(HKEY_CURRENT_USER, kTestKey, user.Out()));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(user, u"Where", 1));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, Query(Base(), u"Where"));
    EXPECT_TRUE(std::filesystem::exists(Root() / "registry.db"));
}

TEST_F(RegistryKeysTest, DeleteKeyRefusesSubkeysAndTakesTheValues)
{
    RegCloseKey(Create(u"Parent\\Child"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteKeyW(Base(), u"Parent"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteKeyExW(Base(), u"Parent", KEY_WOW64_64KEY, 0));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteKeyExW(Base(), u"Parent\\Child", KEY_WOW64_64KEY, 0));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), u"parent"));
    EXPECT_FALSE(KeyExists(Base(), u"Parent"));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, RegDeleteKeyW(Base(), u"Parent"));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, RegDeleteKeyW(Base(), nullptr));

    {
        ScopedKey key(Create(u"WithValues"));
        ASSERT_EQ(ERROR_SUCCESS, SetDword(key, u"v", 1));
        ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(key, u"")) << "an empty name is the key itself";
    }
    EXPECT_FALSE(KeyExists(Base(), u"WithValues"));
    ScopedKey again(Create(u"WithValues"));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, Query(again, u"v"));
}

TEST_F(RegistryKeysTest, OpenHandlesOfADeletedKeyReportKeyDeleted)
{
    ScopedKey key(Create(u"Doomed"));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), u"Doomed"));
    EXPECT_WIN32(ERROR_KEY_DELETED, SetDword(key, u"v", 1));
    EXPECT_WIN32(ERROR_KEY_DELETED, Query(key, u"v"));
    ScopedKey recreated(Create(u"Doomed"));
    EXPECT_WIN32(ERROR_KEY_DELETED, SetDword(key, u"v", 1)) << "a new key of that name is another";
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(key.Release()));
}

TEST_F(RegistryKeysTest, DeleteTreeRemovesTheSubtreeOrEmptiesTheKeyButNeverARoot)
{
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software\\Classes"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteKeyW(HKEY_CLASSES_ROOT, u""));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(HKEY_LOCAL_MACHINE, nullptr));
    {
        ScopedKey deep(Create(u"Tree\\A\\B"));
        ASSERT_EQ(ERROR_SUCCESS, SetDword(deep, u"v", 1));
        RegCloseKey(Create(u"Tree\\C"));
    }
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(Base(), u"Tree"));
    EXPECT_FALSE(KeyExists(Base(), u"Tree"));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, RegDeleteTreeW(Base(), u"Tree"));

    ScopedKey tree(Create(u"Emptied"));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(tree, u"v", 1));
    RegCloseKey(Create(u"Sub\\Deeper", tree));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(tree, nullptr));
    EXPECT_TRUE(KeyExists(Base(), u"Emptied"));
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
    RegCloseKey(Create(u"Rights"));
    HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (const auto& c : cases) {
        SCOPED_TRACE(orvtest::HexCode(c.sam));
        ScopedKey key;
        ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), u"Rights", key.Out(), c.sam));
        EXPECT_WIN32(expect(c.fSet), SetDword(key, u"v", 1));
        LONG query = Query(key, u"v");
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
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), u"Rights", readOnly.Out()));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteValueW(readOnly, u"v"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED,
                 CreateKey(readOnly, u"New", child.Out(), nullptr, 0, KEY_READ));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(readOnly, nullptr));
    RegCloseKey(Create(u"Rights\\Inner"));
    DWORD dwDisposition = 0;
    EXPECT_EQ(ERROR_SUCCESS, CreateKey(readOnly, u"Inner", child.Out(), &dwDisposition))
        << "opening an existing subkey needs no right";
    EXPECT_EQ(DWORD(REG_OPENED_EXISTING_KEY), dwDisposition);
    EXPECT_EQ(ERROR_SUCCESS, SetDword(child, u"v", 1)) << "the new handle has its own rights";
}

TEST_F(RegistryKeysTest, VolatileKeysAndClasses)
{
    ScopedKey key, child;
    ASSERT_EQ(ERROR_SUCCESS,
              CreateKey(Base(), u"Volatile", key.Out(), nullptr, REG_OPTION_VOLATILE));
    EXPECT_WIN32(ERROR_CHILD_MUST_BE_VOLATILE,
                 CreateKey(key, u"Stable", child.Out(), nullptr, REG_OPTION_NON_VOLATILE));
    EXPECT_EQ(ERROR_SUCCESS,
              CreateKey(key, u"Fleeting", child.Out(), nullptr, REG_OPTION_VOLATILE));

    WCHAR className[] = u"OrvClass";
    ASSERT_EQ(ERROR_SUCCESS,
              CreateKey(Base(), u"Classy", key.Out(), nullptr, 0, KEY_ALL_ACCESS, className));
    WCHAR buffer[32];
    DWORD cch = ARRAYSIZE(buffer);
    ASSERT_EQ(ERROR_SUCCESS, RegQueryInfoKeyW(key, buffer, &cch, nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(std::u16string(u"OrvClass"), std::u16string(buffer, cch));
    cch = 3;
    EXPECT_WIN32(ERROR_MORE_DATA,
                 RegQueryInfoKeyW(key, buffer, &cch, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(8u, cch);
}

} // namespace
