// CRegKey: the key wrapper the system's code uses.
#include "pal/regkey.h"
#include "tests/pal/registry/registry_fixture.h"

#include <cstring>
#include <string>

namespace {

using orvtest::registry::DwordBytes;
using orvtest::registry::StringBytes;
using RegKeyTest = orvtest::registry::RegistryConformanceTest;

const WCHAR* const kParams = W("Software\\OrvTest\\Services\\Orvhwsvc\\Parameters");

TEST_F(RegKeyTest, CreateOpenCloseAndOwnership)
{
    {
        CRegKey key;
        DWORD dwDisposition = 0;
        ASSERT_EQ(ERROR_SUCCESS,
                  key.Create(HKEY_LOCAL_MACHINE, kParams, KEY_ALL_ACCESS, &dwDisposition));
        EXPECT_EQ(DWORD(REG_CREATED_NEW_KEY), dwDisposition);
        EXPECT_EQ(ERROR_SUCCESS, key.SetDWORDValue(W("TraceLevel"), 3));
    }
    CRegKey key;
    EXPECT_EQ(nullptr, key.m_hKey);
    ASSERT_EQ(ERROR_SUCCESS, key.Open(HKEY_LOCAL_MACHINE, kParams, KEY_READ));
    DWORD value = 0;
    EXPECT_EQ(ERROR_SUCCESS, key.QueryDWORDValue(W("TraceLevel"), value));
    EXPECT_EQ(3u, value);
    HKEY hHeld = key;
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, key.Open(HKEY_LOCAL_MACHINE, W("Software\\Missing")));
    EXPECT_EQ(hHeld, key.m_hKey) << "a failed open keeps the held key";
    EXPECT_EQ(ERROR_SUCCESS, key.Close());
    EXPECT_EQ(nullptr, key.m_hKey);

    CRegKey first;
    ASSERT_EQ(ERROR_SUCCESS, first.Create(Base(), W("Moved")));
    CRegKey second(std::move(first));
    EXPECT_EQ(nullptr, first.m_hKey);
    EXPECT_EQ(ERROR_SUCCESS, second.SetDWORDValue(W("v"), 1));
    HKEY hDetached = second.Detach();
    EXPECT_EQ(nullptr, second.m_hKey);
    CRegKey third;
    third.Attach(hDetached);
    EXPECT_EQ(ERROR_SUCCESS, third.DeleteValue(W("v")));
}

TEST_F(RegKeyTest, QueryDwordAcceptsOnlyAFourByteDword)
{
    const struct
    {
        DWORD dwType;
        std::vector<BYTE> data;
        bool fPresent;
        LONG expected;
    } cases[] = {
        {REG_DWORD, DwordBytes(0x01020304), true, ERROR_SUCCESS},
        {REG_DWORD, {}, false, ERROR_INVALID_DATA},
        {REG_BINARY, DwordBytes(0x01020304), true, ERROR_INVALID_DATA},
        {REG_DWORD, {1, 2}, true, ERROR_INVALID_DATA},
        {REG_DWORD, {1, 2, 3, 4, 5}, true, ERROR_INVALID_DATA},
        {REG_SZ, StringBytes(W("5")), true, ERROR_INVALID_DATA},
    };
    CRegKey key;
    ASSERT_EQ(ERROR_SUCCESS, key.Open(Base(), nullptr, KEY_READ));
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        SCOPED_TRACE("case " + std::to_string(i));
        RegDeleteValueW(Base(), W("N"));
        if (c.fPresent) {
            ASSERT_EQ(ERROR_SUCCESS, SetBytes(Base(), W("N"), c.dwType, c.data));
        }
        DWORD value = 0xCAFE;
        EXPECT_WIN32(c.expected, key.QueryDWORDValue(W("N"), value));
        EXPECT_EQ(c.expected == ERROR_SUCCESS ? 0x01020304u : 0xCAFEu, value);
    }
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(HKEY_LOCAL_MACHINE, W("Software\\OrvTest")));
    DWORD value = 0xCAFE;
    EXPECT_WIN32(ERROR_KEY_DELETED, key.QueryDWORDValue(W("N"), value)) << "other failures as is";
    EXPECT_EQ(0xCAFEu, value);
}

TEST_F(RegKeyTest, QueryStringCountsCharactersAsAtlDoes)
{
    const struct
    {
        DWORD dwType;
        std::vector<BYTE> data;
        ULONG cchBuffer;
        LONG expected;
        ULONG cchReported; // *pnChars afterwards
    } cases[] = {
        {REG_SZ, StringBytes(W("abc")), 64, ERROR_SUCCESS, 4},
        {REG_SZ, StringBytes(W("abc")), 4, ERROR_SUCCESS, 4},
        {REG_EXPAND_SZ, StringBytes(W("%x%")), 64, ERROR_SUCCESS, 4},
        {REG_SZ, {}, 64, ERROR_SUCCESS, 0},
        {REG_SZ, StringBytes(W("abc")), 3, ERROR_MORE_DATA, 0},
        {REG_MULTI_SZ, StringBytes(orvtest::WString(W("a\0b\0"), 4)), 64, ERROR_INVALID_DATA, 0},
        {REG_SZ, StringBytes(W("abc"), false), 64, ERROR_INVALID_DATA, 0},
        {REG_SZ, {'a', 0, 0}, 64, ERROR_INVALID_DATA, 0},
        {REG_DWORD, DwordBytes(0), 64, ERROR_INVALID_DATA, 0},
        {REG_BINARY, std::vector<BYTE>(200), 64, ERROR_MORE_DATA, 0},
    };
    CRegKey key;
    ASSERT_EQ(ERROR_SUCCESS, key.Open(Base(), nullptr, KEY_READ));
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        SCOPED_TRACE("case " + std::to_string(i));
        ASSERT_EQ(ERROR_SUCCESS, SetBytes(Base(), W("S"), c.dwType, c.data));
        WCHAR buffer[64];
        std::fill(std::begin(buffer), std::end(buffer), W('#'));
        ULONG cch = c.cchBuffer;
        EXPECT_WIN32(c.expected, key.QueryStringValue(W("S"), buffer, &cch));
        EXPECT_EQ(c.cchReported, cch);
        if (c.expected == ERROR_SUCCESS && !c.data.empty()) {
            EXPECT_EQ(0, std::memcmp(buffer, c.data.data(), c.data.size()));
        }
        if (c.expected == ERROR_INVALID_DATA || c.data.empty()) {
            EXPECT_EQ(0, buffer[0]) << "no unterminated text is left for a careless caller";
        }
    }

    ASSERT_EQ(ERROR_SUCCESS, key.Open(Base(), nullptr));
    ASSERT_EQ(ERROR_SUCCESS, key.SetStringValue(W("Path"), W("C:\\Orvane")));
    EXPECT_EQ(StringBytes(W("C:\\Orvane")), GetBytes(Base(), W("Path")))
        << "written with terminator";
    ULONG cch = 0;
    EXPECT_EQ(ERROR_SUCCESS, key.QueryStringValue(W("Path"), nullptr, &cch));
    EXPECT_EQ(10u, cch);
    WCHAR buffer[4];
    cch = ARRAYSIZE(buffer);
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, key.QueryStringValue(W("Absent"), buffer, &cch));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, key.QueryStringValue(W("Path"), buffer, nullptr));
}

TEST_F(RegKeyTest, WritesDeletesAndNotification)
{
    CRegKey key;
    ASSERT_EQ(ERROR_SUCCESS, key.Open(Base(), nullptr));
    ASSERT_EQ(ERROR_SUCCESS, key.SetStringValue(W("Dir"), W("%TEMP%"), REG_EXPAND_SZ));
    DWORD dwType = 0;
    EXPECT_EQ(StringBytes(W("%TEMP%")), GetBytes(Base(), W("Dir"), &dwType));
    EXPECT_EQ(DWORD(REG_EXPAND_SZ), dwType);
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, key.SetStringValue(W("Dir"), nullptr));

    CRegKey child;
    ASSERT_EQ(ERROR_SUCCESS, child.Create(key, W("Child\\Grandchild")));
    child.Close();
    EXPECT_WIN32(ERROR_ACCESS_DENIED, key.DeleteSubKey(W("Child")));
    EXPECT_EQ(ERROR_SUCCESS, key.RecurseDeleteKey(W("Child")));
    EXPECT_FALSE(KeyExists(Base(), W("Child")));

    HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_EQ(ERROR_SUCCESS, key.NotifyChangeKeyValue(TRUE, REG_NOTIFY_CHANGE_LAST_SET, hEvent));
    ASSERT_EQ(ERROR_SUCCESS, key.SetDWORDValue(W("v"), 1));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hEvent, 0));
    key.Close();
    CloseHandle(hEvent);

    ASSERT_EQ(ERROR_SUCCESS, key.Open(Base(), nullptr, KEY_READ));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, key.SetDWORDValue(W("v"), 1));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, key.SetStringValue(W("s"), W("x")));
}

} // namespace
