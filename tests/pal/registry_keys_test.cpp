// Conformance of RegOpenKeyExW, RegCreateKeyExW, RegCloseKey, RegDeleteKeyW and
// RegDeleteTreeW.
#include "tests/pal/registry_testing.h"

#include <string>

namespace {

using orvtest::registry::kTestKey;
using orvtest::registry::ScopedKey;
using RegistryKeysTest = orvtest::registry::RegistryTest;

TEST_F(RegistryKeysTest, PredefinedRootsHaveTheirWindowsValues)
{
    EXPECT_EQ(0xFFFFFFFF80000000ull, reinterpret_cast<ULONG_PTR>(HKEY_CLASSES_ROOT));
    EXPECT_EQ(0xFFFFFFFF80000001ull, reinterpret_cast<ULONG_PTR>(HKEY_CURRENT_USER));
    EXPECT_EQ(0xFFFFFFFF80000002ull, reinterpret_cast<ULONG_PTR>(HKEY_LOCAL_MACHINE));
    EXPECT_EQ(0x20019u, DWORD(KEY_READ));
    EXPECT_EQ(0x20006u, DWORD(KEY_WRITE));
    EXPECT_EQ(0xF003Fu, DWORD(KEY_ALL_ACCESS));
}

TEST_F(RegistryKeysTest, CreateReportsNewThenExisting)
{
    ScopedKey key;
    DWORD dwDisposition = 0;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(Base(), u"Fresh", 0, nullptr, REG_OPTION_NON_VOLATILE,
                                             KEY_READ, nullptr, key.Out(), &dwDisposition));
    EXPECT_EQ(DWORD(REG_CREATED_NEW_KEY), dwDisposition);
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(Base(), u"FRESH", 0, nullptr, 0, KEY_READ, nullptr,
                                             key.Out(), &dwDisposition));
    EXPECT_EQ(DWORD(REG_OPENED_EXISTING_KEY), dwDisposition);
}

TEST_F(RegistryKeysTest, CreateMakesEveryMissingIntermediateKey)
{
    ScopedKey key;
    DWORD dwDisposition = 0;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(Base(), u"A\\B\\C\\", 0, nullptr, 0, KEY_ALL_ACCESS,
                                             nullptr, key.Out(), &dwDisposition));
    EXPECT_EQ(DWORD(REG_CREATED_NEW_KEY), dwDisposition);
    EXPECT_TRUE(KeyExists(Base(), u"A"));
    EXPECT_TRUE(KeyExists(Base(), u"A\\B"));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\OrvTest\\A\\B\\C"));
}

TEST_F(RegistryKeysTest, CreateWithEmptySubKeyOpensTheKeyItself)
{
    ScopedKey key;
    DWORD dwDisposition = 0;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(Base(), u"", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                             key.Out(), &dwDisposition));
    EXPECT_EQ(DWORD(REG_OPENED_EXISTING_KEY), dwDisposition);
    ASSERT_EQ(ERROR_SUCCESS, SetDword(key, u"Through", 7));
    EXPECT_EQ(orvtest::registry::DwordBytes(7), GetBytes(Base(), u"Through"));
}

TEST_F(RegistryKeysTest, OpenMissingKeyFailsAndNullsTheResult)
{
    HKEY hKey = reinterpret_cast<HKEY>(0x1234);
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, RegOpenKeyExW(Base(), u"Missing", 0, KEY_READ, &hKey));
    EXPECT_EQ(nullptr, hKey);
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND,
                 RegOpenKeyExW(Base(), u"Missing\\Deeper", 0, KEY_READ, &hKey));
}

TEST_F(RegistryKeysTest, KeyNamesAreCaseInsensitiveAndCasePreserving)
{
    ScopedKey created(Create(u"MixedCase"));
    ScopedKey opened;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"SOFTWARE\\orvtest\\mixedCASE", 0,
                                           KEY_READ, opened.Out()));
    WCHAR name[64];
    DWORD cch = ARRAYSIZE(name);
    ASSERT_EQ(ERROR_SUCCESS,
              RegEnumKeyExW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(std::u16string(u"MixedCase"), std::u16string(name, cch));
}

TEST_F(RegistryKeysTest, CaseFoldingCoversAccentedLetters)
{
    ScopedKey created(Create(u"\u00e9t\u00e9"));
    EXPECT_TRUE(KeyExists(Base(), u"\u00c9T\u00c9"));
}

TEST_F(RegistryKeysTest, OpenWithNullOrEmptySubKey)
{
    HKEY hKey = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, nullptr, 0, KEY_READ, &hKey));
    EXPECT_EQ(HKEY_LOCAL_MACHINE, hKey) << "a predefined key opens as itself";
    ScopedKey again;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(Base(), u"", 0, KEY_READ, again.Out()));
    EXPECT_NE(Base(), again.Get()) << "another key gets a new handle";
}

struct BadPathCase
{
    const char* label;
    std::u16string path;
    LONG expected;
};

void PrintTo(const BadPathCase& c, std::ostream* os)
{
    *os << c.label;
}

class RegistryBadPathTest : public orvtest::registry::RegistryTest,
                            public ::testing::WithParamInterface<BadPathCase>
{};

TEST_P(RegistryBadPathTest, CreateAndOpenRejectThePath)
{
    const BadPathCase& c = GetParam();
    ScopedKey key;
    EXPECT_WIN32(c.expected, RegCreateKeyExW(Base(), c.path.c_str(), 0, nullptr, 0, KEY_READ,
                                             nullptr, key.Out(), nullptr));
    EXPECT_WIN32(c.expected, RegOpenKeyExW(Base(), c.path.c_str(), 0, KEY_READ, key.Out()));
}

INSTANTIATE_TEST_SUITE_P(
    Paths, RegistryBadPathTest,
    ::testing::Values(BadPathCase{"LeadingBackslash", u"\\Lead", ERROR_BAD_PATHNAME},
                      BadPathCase{"EmptyComponent", u"A\\\\B", ERROR_BAD_PATHNAME},
                      BadPathCase{"ComponentOf256", std::u16string(256, u'k'),
                                  ERROR_INVALID_PARAMETER}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(RegistryKeysTest, ComponentOf255CharactersIsAccepted)
{
    std::u16string name(255, u'k');
    ScopedKey key(Create(name.c_str()));
    EXPECT_NE(nullptr, key.Get());
}

TEST_F(RegistryKeysTest, InvalidArgumentsAndHandles)
{
    ScopedKey key;
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, RegOpenKeyExW(Base(), u"x", 0, KEY_READ, nullptr));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, RegCreateKeyExW(Base(), nullptr, 0, nullptr, 0, KEY_READ,
                                                          nullptr, key.Out(), nullptr));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, RegCreateKeyExW(Base(), u"x", 0, nullptr, 0x1000,
                                                          KEY_READ, nullptr, key.Out(), nullptr));
    HKEY bogus = reinterpret_cast<HKEY>(0x7777);
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegOpenKeyExW(bogus, u"x", 0, KEY_READ, key.Out()));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegCloseKey(bogus));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegCloseKey(nullptr));
}

TEST_F(RegistryKeysTest, ClosedHandleIsInvalidAndPredefinedCloseIsHarmless)
{
    HKEY hKey = Create(u"Closing");
    ASSERT_EQ(ERROR_SUCCESS, RegCloseKey(hKey));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, RegCloseKey(hKey));
    EXPECT_WIN32(ERROR_INVALID_HANDLE, SetDword(hKey, u"v", 1));
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(HKEY_LOCAL_MACHINE));
    EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, kTestKey)) << "HKLM still works after closing";
}

TEST_F(RegistryKeysTest, ClassesRootIsAViewOfSoftwareClasses)
{
    ScopedKey viaRoot;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CLASSES_ROOT, u"CLSID\\{1234}", 0, nullptr, 0,
                                             KEY_ALL_ACCESS, nullptr, viaRoot.Out(), nullptr));
    ASSERT_EQ(ERROR_SUCCESS, SetString(viaRoot, nullptr, u"Orvane provider"));
    ScopedKey viaMachine;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software\\Classes\\CLSID\\{1234}",
                                           0, KEY_READ, viaMachine.Out()));
    EXPECT_EQ(orvtest::registry::StringBytes(u"Orvane provider"), GetBytes(viaMachine, nullptr));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteTreeW(HKEY_CLASSES_ROOT, u"CLSID"));
    EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, u"Software\\Classes\\CLSID"));
}

TEST_F(RegistryKeysTest, CurrentUserIsSeparateFromLocalMachine)
{
    ScopedKey user;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CURRENT_USER, kTestKey, 0, nullptr, 0,
                                             KEY_ALL_ACCESS, nullptr, user.Out(), nullptr));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(user, u"Where", 1));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND,
                 RegQueryValueExW(Base(), u"Where", nullptr, nullptr, nullptr, nullptr));
}

TEST_F(RegistryKeysTest, KeysPersistInTheMachineRoot)
{
    ScopedKey key(Create(u"Persistent"));
    ASSERT_EQ(ERROR_SUCCESS, SetString(key, u"Name", u"kept"));
    EXPECT_TRUE(std::filesystem::exists(Root() / "registry.db"));
}

// ---- Deletion ----

TEST_F(RegistryKeysTest, DeleteKeyRefusesAKeyWithSubkeys)
{
    ScopedKey child(Create(u"Parent\\Child"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteKeyW(Base(), u"Parent"));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), u"Parent\\Child"));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), u"parent"));
    EXPECT_FALSE(KeyExists(Base(), u"Parent"));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, RegDeleteKeyW(Base(), u"Parent"));
}

TEST_F(RegistryKeysTest, DeleteKeyRemovesItsValues)
{
    {
        ScopedKey key(Create(u"WithValues"));
        ASSERT_EQ(ERROR_SUCCESS, SetDword(key, u"v", 1));
    }
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), u"WithValues"));
    ScopedKey again(Create(u"WithValues"));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND,
                 RegQueryValueExW(again, u"v", nullptr, nullptr, nullptr, nullptr));
}

TEST_F(RegistryKeysTest, OpenHandlesOfADeletedKeyReportKeyDeleted)
{
    ScopedKey key(Create(u"Doomed"));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), u"Doomed"));
    EXPECT_WIN32(ERROR_KEY_DELETED, SetDword(key, u"v", 1));
    EXPECT_WIN32(ERROR_KEY_DELETED,
                 RegQueryValueExW(key, u"v", nullptr, nullptr, nullptr, nullptr));
    ScopedKey recreated(Create(u"Doomed"));
    EXPECT_WIN32(ERROR_KEY_DELETED, SetDword(key, u"v", 1)) << "a new key of that name is another";
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(key.Release()));
}

TEST_F(RegistryKeysTest, DeleteKeyWithEmptyNameDeletesTheKeyItself)
{
    ScopedKey key(Create(u"Self"));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(key, u""));
    EXPECT_FALSE(KeyExists(Base(), u"Self"));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, RegDeleteKeyW(Base(), nullptr));
}

TEST_F(RegistryKeysTest, RootsAndClassesCannotBeDeleted)
{
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software\\Classes"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteKeyW(HKEY_CLASSES_ROOT, u""));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(HKEY_LOCAL_MACHINE, nullptr));
}

TEST_F(RegistryKeysTest, DeleteKeyExBehavesLikeDeleteKey)
{
    ScopedKey child(Create(u"Ex\\Child"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteKeyExW(Base(), u"Ex", KEY_WOW64_64KEY, 0));
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteKeyExW(Base(), u"Ex\\Child", KEY_WOW64_64KEY, 0));
}

TEST_F(RegistryKeysTest, DeleteTreeRemovesEverythingBelow)
{
    {
        ScopedKey deep(Create(u"Tree\\A\\B"));
        ASSERT_EQ(ERROR_SUCCESS, SetDword(deep, u"v", 1));
        ScopedKey other(Create(u"Tree\\C"));
    }
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(Base(), u"Tree"));
    EXPECT_FALSE(KeyExists(Base(), u"Tree"));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, RegDeleteTreeW(Base(), u"Tree"));
}

TEST_F(RegistryKeysTest, DeleteTreeWithoutSubKeyEmptiesTheKey)
{
    ScopedKey tree(Create(u"Emptied"));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(tree, u"v", 1));
    RegCloseKey(Create(u"Sub\\Deeper", tree));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(tree, nullptr));
    EXPECT_TRUE(KeyExists(Base(), u"Emptied"));
    DWORD cSubKeys = 9, cValues = 9;
    ASSERT_EQ(ERROR_SUCCESS,
              RegQueryInfoKeyW(tree, nullptr, nullptr, nullptr, &cSubKeys, nullptr, nullptr,
                               &cValues, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(0u, cSubKeys);
    EXPECT_EQ(0u, cValues);
}

// ---- Access rights ----

TEST_F(RegistryKeysTest, ReadHandleCannotWriteOrCreate)
{
    RegCloseKey(Create(u"ReadOnly"));
    ScopedKey key;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(Base(), u"ReadOnly", 0, KEY_READ, key.Out()));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, SetDword(key, u"v", 1));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteValueW(key, u"v"));
    ScopedKey child;
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegCreateKeyExW(key, u"New", 0, nullptr, 0, KEY_READ, nullptr,
                                                      child.Out(), nullptr));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(key, nullptr));
}

TEST_F(RegistryKeysTest, ReadHandleStillOpensExistingSubkeys)
{
    RegCloseKey(Create(u"Outer\\Inner"));
    ScopedKey outer;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(Base(), u"Outer", 0, KEY_READ, outer.Out()));
    ScopedKey inner;
    DWORD dwDisposition = 0;
    EXPECT_EQ(ERROR_SUCCESS, RegCreateKeyExW(outer, u"Inner", 0, nullptr, 0, KEY_ALL_ACCESS,
                                             nullptr, inner.Out(), &dwDisposition));
    EXPECT_EQ(DWORD(REG_OPENED_EXISTING_KEY), dwDisposition);
    EXPECT_EQ(ERROR_SUCCESS, SetDword(inner, u"v", 1)) << "the new handle has its own rights";
}

struct AccessCase
{
    const char* label;
    REGSAM sam;
    bool fQuery;
    bool fSet;
    bool fEnumerate;
    bool fNotify;
};

void PrintTo(const AccessCase& c, std::ostream* os)
{
    *os << c.label;
}

class RegistryAccessTest : public orvtest::registry::RegistryTest,
                           public ::testing::WithParamInterface<AccessCase>
{};

TEST_P(RegistryAccessTest, RightsOfTheHandleDecide)
{
    const AccessCase& c = GetParam();
    RegCloseKey(Create(u"Rights"));
    ScopedKey key;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(Base(), u"Rights", 0, c.sam, key.Out()));
    auto expect = [](bool fAllowed) { return fAllowed ? ERROR_SUCCESS : ERROR_ACCESS_DENIED; };
    EXPECT_WIN32(expect(c.fSet), SetDword(key, u"v", 1));
    DWORD cb = 0;
    LONG query = RegQueryValueExW(key, u"v", nullptr, nullptr, nullptr, &cb);
    if (c.fQuery) {
        EXPECT_TRUE(query == ERROR_SUCCESS || query == ERROR_FILE_NOT_FOUND);
    } else {
        EXPECT_WIN32(ERROR_ACCESS_DENIED, query);
    }
    WCHAR name[8];
    DWORD cch = ARRAYSIZE(name);
    LONG enumerate = RegEnumKeyExW(key, 0, name, &cch, nullptr, nullptr, nullptr, nullptr);
    EXPECT_WIN32(c.fEnumerate ? ERROR_NO_MORE_ITEMS : ERROR_ACCESS_DENIED, enumerate);
    HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    EXPECT_WIN32(expect(c.fNotify),
                 RegNotifyChangeKeyValue(key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, hEvent, TRUE));
    key.Reset();
    CloseHandle(hEvent);
}

INSTANTIATE_TEST_SUITE_P(
    Masks, RegistryAccessTest,
    ::testing::Values(AccessCase{"KeyRead", KEY_READ, true, false, true, true},
                      AccessCase{"KeyWrite", KEY_WRITE, false, true, false, false},
                      AccessCase{"AllAccess", KEY_ALL_ACCESS, true, true, true, true},
                      AccessCase{"QueryValue", KEY_QUERY_VALUE, true, false, false, false},
                      AccessCase{"SetValue", KEY_SET_VALUE, false, true, false, false},
                      AccessCase{"Notify", KEY_NOTIFY, false, false, false, true},
                      AccessCase{"EnumerateSubKeys", KEY_ENUMERATE_SUB_KEYS, false, false, true,
                                 false},
                      AccessCase{"GenericRead", GENERIC_READ, true, false, true, true},
                      AccessCase{"MaximumAllowed", MAXIMUM_ALLOWED, true, true, true, true}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(RegistryKeysTest, VolatileKeysOnlyHoldVolatileChildren)
{
    ScopedKey key;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(Base(), u"Volatile", 0, nullptr, REG_OPTION_VOLATILE,
                                             KEY_ALL_ACCESS, nullptr, key.Out(), nullptr));
    ScopedKey child;
    EXPECT_WIN32(ERROR_CHILD_MUST_BE_VOLATILE,
                 RegCreateKeyExW(key, u"Stable", 0, nullptr, REG_OPTION_NON_VOLATILE,
                                 KEY_ALL_ACCESS, nullptr, child.Out(), nullptr));
    EXPECT_EQ(ERROR_SUCCESS, RegCreateKeyExW(key, u"Fleeting", 0, nullptr, REG_OPTION_VOLATILE,
                                             KEY_ALL_ACCESS, nullptr, child.Out(), nullptr));
}

TEST_F(RegistryKeysTest, ClassIsKeptAndReported)
{
    ScopedKey key;
    WCHAR className[] = u"OrvClass";
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(Base(), u"Classy", 0, className, 0, KEY_ALL_ACCESS,
                                             nullptr, key.Out(), nullptr));
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
