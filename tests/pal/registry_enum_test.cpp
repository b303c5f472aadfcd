// Conformance of RegEnumKeyExW, RegEnumValueW and RegQueryInfoKeyW.
#include "tests/pal/registry_testing.h"

#include <string>

namespace {

using orvtest::registry::DwordBytes;
using orvtest::registry::ScopedKey;
using orvtest::registry::StringBytes;
using RegistryEnumTest = orvtest::registry::RegistryTest;

std::vector<std::u16string> SubKeyNames(HKEY hKey)
{
    std::vector<std::u16string> names;
    for (DWORD i = 0;; ++i) {
        WCHAR name[256];
        DWORD cch = ARRAYSIZE(name);
        LONG status = RegEnumKeyExW(hKey, i, name, &cch, nullptr, nullptr, nullptr, nullptr);
        if (status != ERROR_SUCCESS) {
            EXPECT_WIN32(ERROR_NO_MORE_ITEMS, status);
            return names;
        }
        names.emplace_back(name, cch);
    }
}

std::vector<std::u16string> ValueNames(HKEY hKey)
{
    std::vector<std::u16string> names;
    for (DWORD i = 0;; ++i) {
        WCHAR name[256];
        DWORD cch = ARRAYSIZE(name);
        LONG status = RegEnumValueW(hKey, i, name, &cch, nullptr, nullptr, nullptr, nullptr);
        if (status != ERROR_SUCCESS) {
            EXPECT_WIN32(ERROR_NO_MORE_ITEMS, status);
            return names;
        }
        names.emplace_back(name, cch);
    }
}

TEST_F(RegistryEnumTest, EmptyKeyHasNoItems)
{
    WCHAR name[8];
    DWORD cch = ARRAYSIZE(name);
    EXPECT_WIN32(ERROR_NO_MORE_ITEMS,
                 RegEnumKeyExW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
    EXPECT_WIN32(ERROR_NO_MORE_ITEMS,
                 RegEnumValueW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(RegistryEnumTest, SubkeysComeInNameOrderAndStayThere)
{
    for (const WCHAR* name : {u"delta", u"Alpha", u"charlie", u"Bravo"})
        RegCloseKey(Create(name));
    const std::vector<std::u16string> expected{u"Alpha", u"Bravo", u"charlie", u"delta"};
    EXPECT_EQ(expected, SubKeyNames(Base()));
    EXPECT_EQ(expected, SubKeyNames(Base())) << "the order is stable";
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"unrelated", 1));
    EXPECT_EQ(expected, SubKeyNames(Base())) << "values do not disturb it";
}

TEST_F(RegistryEnumTest, ValuesComeInTheOrderTheyWereFirstSet)
{
    for (const WCHAR* name : {u"zeta", u"Alpha", u"mid"})
        ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), name, 1));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"zeta", 2)) << "rewriting keeps the place";
    const std::vector<std::u16string> expected{u"zeta", u"Alpha", u"mid"};
    EXPECT_EQ(expected, ValueNames(Base()));
    EXPECT_EQ(expected, ValueNames(Base()));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteValueW(Base(), u"Alpha"));
    EXPECT_EQ((std::vector<std::u16string>{u"zeta", u"mid"}), ValueNames(Base()));
}

TEST_F(RegistryEnumTest, EnumKeyNameBufferRules)
{
    RegCloseKey(Create(u"Seven77"));
    WCHAR name[8];
    DWORD cch = 7; // room for the name but not its terminator
    EXPECT_WIN32(ERROR_MORE_DATA,
                 RegEnumKeyExW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(7u, cch) << "the count is left alone";
    cch = 8;
    FILETIME ft{};
    ASSERT_EQ(ERROR_SUCCESS, RegEnumKeyExW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, &ft));
    EXPECT_EQ(7u, cch);
    EXPECT_EQ(0, name[7]);
    EXPECT_NE(0u, ft.dwHighDateTime);
    DWORD reserved = 0;
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegEnumKeyExW(Base(), 0, name, &cch, &reserved, nullptr, nullptr, nullptr));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegEnumKeyExW(Base(), 0, nullptr, &cch, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(RegistryEnumTest, EnumValueReturnsTypeAndData)
{
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), u"Str", u"hello"));
    WCHAR name[16];
    DWORD cch = ARRAYSIZE(name);
    DWORD dwType = 0;
    BYTE data[32];
    DWORD cb = sizeof(data);
    ASSERT_EQ(ERROR_SUCCESS, RegEnumValueW(Base(), 0, name, &cch, nullptr, &dwType, data, &cb));
    EXPECT_EQ(std::u16string(u"Str"), std::u16string(name, cch));
    EXPECT_EQ(DWORD(REG_SZ), dwType);
    EXPECT_EQ(StringBytes(u"hello"), std::vector<BYTE>(data, data + cb));
}

TEST_F(RegistryEnumTest, EnumValueBufferRules)
{
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), u"Str", u"hello"));
    WCHAR name[16];
    DWORD cch = ARRAYSIZE(name);
    BYTE data[4];
    DWORD cb = sizeof(data);
    EXPECT_WIN32(ERROR_MORE_DATA,
                 RegEnumValueW(Base(), 0, name, &cch, nullptr, nullptr, data, &cb));
    EXPECT_EQ(12u, cb) << "the size needed";
    cch = ARRAYSIZE(name);
    cb = 0;
    ASSERT_EQ(ERROR_SUCCESS, RegEnumValueW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, &cb));
    EXPECT_EQ(12u, cb) << "size query";
    cch = 3; // "Str" without room for the terminator
    EXPECT_WIN32(ERROR_MORE_DATA,
                 RegEnumValueW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
    cch = ARRAYSIZE(name);
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegEnumValueW(Base(), 0, name, &cch, nullptr, nullptr, data, nullptr));
    EXPECT_WIN32(ERROR_NO_MORE_ITEMS,
                 RegEnumValueW(Base(), 1, name, &cch, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(RegistryEnumTest, QueryInfoCountsAndLongestNames)
{
    RegCloseKey(Create(u"Short"));
    RegCloseKey(Create(u"MuchLongerName"));
    RegCloseKey(Create(u"MuchLongerName\\NotCounted\\AtAll"));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"a", 1));
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), u"LongestValueName", u"x"));
    ASSERT_EQ(ERROR_SUCCESS, SetBytes(Base(), nullptr, REG_BINARY, std::vector<BYTE>(100)));
    DWORD cSubKeys = 0, cchMaxSubKey = 0, cValues = 0, cchMaxValueName = 0, cbMaxValue = 0;
    DWORD cbSecurity = 99;
    FILETIME ft{};
    ASSERT_EQ(ERROR_SUCCESS,
              RegQueryInfoKeyW(Base(), nullptr, nullptr, nullptr, &cSubKeys, &cchMaxSubKey, nullptr,
                               &cValues, &cchMaxValueName, &cbMaxValue, &cbSecurity, &ft));
    EXPECT_EQ(2u, cSubKeys);
    EXPECT_EQ(14u, cchMaxSubKey);
    EXPECT_EQ(3u, cValues);
    EXPECT_EQ(16u, cchMaxValueName);
    EXPECT_EQ(100u, cbMaxValue);
    EXPECT_EQ(0u, cbSecurity);
    EXPECT_NE(0u, ft.dwHighDateTime);
}

TEST_F(RegistryEnumTest, LastWriteTimeMovesOnWrites)
{
    ScopedKey key(Create(u"Timed"));
    FILETIME before{}, after{};
    ASSERT_EQ(ERROR_SUCCESS,
              RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr, &before));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(key, u"v", 1));
    ASSERT_EQ(ERROR_SUCCESS, RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr, &after));
    auto value = [](FILETIME ft) {
        return (ULONGLONG(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
    };
    EXPECT_GE(value(after), value(before));
}

TEST_F(RegistryEnumTest, EnumerationOfTheRootShowsSoftware)
{
    std::vector<std::u16string> names = SubKeyNames(HKEY_LOCAL_MACHINE);
    EXPECT_NE(names.end(), std::find(names.begin(), names.end(), u"Software"));
}

} // namespace
