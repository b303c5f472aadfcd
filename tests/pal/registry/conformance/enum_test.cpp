// Conformance of RegEnumKeyExW, RegEnumValueW and RegQueryInfoKeyW.
#include "tests/pal/registry/registry_fixture.h"

#include <algorithm>
#include <string>

namespace {

using orvtest::registry::QueryInfo;
using orvtest::registry::ScopedKey;
using orvtest::registry::StringBytes;
using RegistryEnumTest = orvtest::registry::RegistryConformanceTest;
using Names = std::vector<orvtest::WString>;

// The subkeys' (or values') names in enumeration order, which must end with
// ERROR_NO_MORE_ITEMS.
Names Enumerate(HKEY hKey, bool fValues)
{
    Names names;
    for (DWORD i = 0;; ++i) {
        WCHAR name[256];
        DWORD cch = ARRAYSIZE(name);
        LONG status = fValues
                          ? RegEnumValueW(hKey, i, name, &cch, nullptr, nullptr, nullptr, nullptr)
                          : RegEnumKeyExW(hKey, i, name, &cch, nullptr, nullptr, nullptr, nullptr);
        if (status != ERROR_SUCCESS) {
            EXPECT_WIN32(ERROR_NO_MORE_ITEMS, status);
            return names;
        }
        names.emplace_back(name, cch);
    }
}

TEST_F(RegistryEnumTest, SubkeysComeInNameOrder)
{
    EXPECT_EQ(Names{}, Enumerate(Base(), false));
    EXPECT_EQ(Names{}, Enumerate(Base(), true));
    for (const WCHAR* name : {W("delta"), W("Alpha"), W("charlie"), W("Bravo")})
        RegCloseKey(Create(name));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), W("zeta"), 1));
    const Names keys{W("Alpha"), W("Bravo"), W("charlie"), W("delta")};
    for (int pass = 0; pass < 2; ++pass)
        EXPECT_EQ(keys, Enumerate(Base(), false)) << "values do not disturb it, nor a repeat";
    Names roots = Enumerate(HKEY_LOCAL_MACHINE, false);
    EXPECT_NE(roots.end(), std::find(roots.begin(), roots.end(), W("Software")));
}

TEST_F(RegistryEnumTest, EnumKeyBufferRules)
{
    RegCloseKey(Create(W("Seven77")));
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
}

TEST_F(RegistryEnumTest, EnumValueReturnsTypeAndDataWithTheBufferRules)
{
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), W("Str"), W("hello")));
    WCHAR name[16];
    DWORD cch = ARRAYSIZE(name), dwType = 0;
    BYTE data[32];
    DWORD cb = sizeof(data);
    ASSERT_EQ(ERROR_SUCCESS, RegEnumValueW(Base(), 0, name, &cch, nullptr, &dwType, data, &cb));
    EXPECT_EQ(orvtest::WString(W("Str")), orvtest::WString(name, cch));
    EXPECT_EQ(DWORD(REG_SZ), dwType);
    EXPECT_EQ(StringBytes(W("hello")), std::vector<BYTE>(data, data + cb));

    cch = ARRAYSIZE(name);
    cb = 4;
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

TEST_F(RegistryEnumTest, QueryInfoCountsLongestNamesAndLastWrite)
{
    RegCloseKey(Create(W("Short")));
    RegCloseKey(Create(W("MuchLongerName")));
    RegCloseKey(Create(W("MuchLongerName\\NotCounted\\AtAll")));
    auto before = QueryInfo(Base());
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), W("a"), 1));
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), W("LongestValueName"), W("x")));
    ASSERT_EQ(ERROR_SUCCESS, SetBytes(Base(), nullptr, REG_BINARY, std::vector<BYTE>(100)));
    auto info = QueryInfo(Base());
    ASSERT_EQ(ERROR_SUCCESS, info.status);
    EXPECT_EQ(2u, info.cSubKeys);
    EXPECT_EQ(14u, info.cchMaxSubKey);
    EXPECT_EQ(3u, info.cValues);
    EXPECT_EQ(16u, info.cchMaxValueName);
    EXPECT_EQ(100u, info.cbMaxValue);
    EXPECT_NE(0u, info.ftLastWrite.dwHighDateTime);
    EXPECT_GE(info.LastWrite(), before.LastWrite());
}

} // namespace
