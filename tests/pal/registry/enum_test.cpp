// Enumeration where the pal keeps to Windows and Wine does not, or where Windows leaves the
// result undefined. The rest is checked on both platforms by conformance/enum_test.cpp.
#include "tests/pal/registry/registry_testing.h"

#include <string>
#include <vector>

namespace {

using RegistryEnumPalTest = orvtest::registry::RegistryTest;
using Names = std::vector<std::u16string>;

Names ValueNames(HKEY hKey)
{
    Names names;
    WCHAR name[64];
    DWORD cch = ARRAYSIZE(name);
    for (DWORD i = 0;
         RegEnumValueW(hKey, i, name, &cch, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++i, cch = ARRAYSIZE(name))
        names.emplace_back(name, cch);
    return names;
}

// Linux only: Wine sorts values by name (its own registry tests mark the order todo_wine).
TEST_F(RegistryEnumPalTest, ValuesComeInTheOrderFirstSet)
{
    for (const WCHAR* name : {u"zeta", u"Alpha", u"mid"})
        ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), name, 1));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"zeta", 2)) << "rewriting keeps the place";
    EXPECT_EQ((Names{u"zeta", u"Alpha", u"mid"}), ValueNames(Base()));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteValueW(Base(), u"Alpha"));
    EXPECT_EQ((Names{u"zeta", u"mid"}), ValueNames(Base()));
}

// Linux only: the pal keeps no security descriptors (Windows reports one's size, Wine 0); Wine
// answers a missing name buffer with ERROR_MORE_DATA, and Windows documents no result.
TEST_F(RegistryEnumPalTest, NoSecurityDescriptorAndANameBufferIsRequired)
{
    EXPECT_EQ(0u, orvtest::registry::QueryInfo(Base()).cbSecurity);
    RegCloseKey(Create(u"Sub"));
    DWORD cch = 8;
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegEnumKeyExW(Base(), 0, nullptr, &cch, nullptr, nullptr, nullptr, nullptr));
}

} // namespace
