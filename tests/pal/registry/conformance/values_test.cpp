// Conformance of RegSetValueExW, RegQueryValueExW and RegDeleteValueW.
#include "tests/pal/registry/registry_fixture.h"

#include <string>

namespace {

using orvtest::registry::DwordBytes;
using orvtest::registry::QueryInfo;
using orvtest::registry::ScopedKey;
using orvtest::registry::StringBytes;
using RegistryValuesTest = orvtest::registry::RegistryConformanceTest;

TEST_F(RegistryValuesTest, DataAndTypeComeBackByteForByte)
{
    std::vector<BYTE> large(1 << 20);
    for (size_t i = 0; i < large.size(); ++i)
        large[i] = static_cast<BYTE>(i * 7);
    // One value rewritten with each case in turn: a rewrite replaces type and data whole.
    const struct
    {
        DWORD dwType;
        std::vector<BYTE> data;
    } cases[] = {
        {REG_SZ, StringBytes(W("Orvane"))},
        {REG_SZ, StringBytes(W("Orvane"), false)},
        {REG_EXPAND_SZ, StringBytes(W("%SystemRoot%\\x"))},
        {REG_MULTI_SZ, StringBytes(orvtest::WString(W("a\0bc\0\0"), 6), false)},
        {REG_DWORD, DwordBytes(0xDEADBEEF)},
        {REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8}},
        {REG_BINARY, {0, 0xFF, 0, 0x10}},
        {REG_BINARY, {}},
        {REG_NONE, {9}},
        {REG_SZ, {'a', 0, 'b'}},
        {0x1234, {1, 2}},
        {REG_BINARY, large},
    };
    ScopedKey reader;
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(HKEY_LOCAL_MACHINE, W("Software\\OrvTest"), reader.Out()));
    for (size_t i = 0; i < std::size(cases); ++i) {
        ASSERT_EQ(ERROR_SUCCESS, SetBytes(Base(), W("Value"), cases[i].dwType, cases[i].data));
        DWORD dwType = 0xFFFF;
        EXPECT_EQ(cases[i].data, GetBytes(reader, W("Value"), &dwType)) << "case " << i;
        EXPECT_EQ(cases[i].dwType, dwType) << "case " << i;
    }
}

TEST_F(RegistryValuesTest, QueryBufferRules)
{
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), W("Name"), W("abcdef")));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), W("Number"), 42));
    DWORD dwType = 0, cb = 0;
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(Base(), W("Name"), nullptr, &dwType, nullptr, &cb));
    EXPECT_EQ(14u, cb) << "size query";
    EXPECT_EQ(DWORD(REG_SZ), dwType);
    EXPECT_EQ(ERROR_SUCCESS, Query(Base(), W("Name"))) << "only whether it exists";

    BYTE buffer[64] = {};
    cb = 4;
    dwType = 0;
    EXPECT_WIN32(ERROR_MORE_DATA,
                 RegQueryValueExW(Base(), W("Name"), nullptr, &dwType, buffer, &cb));
    EXPECT_EQ(14u, cb) << "the size needed";
    EXPECT_EQ(DWORD(REG_SZ), dwType);
    cb = sizeof(buffer);
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(Base(), W("Name"), nullptr, nullptr, buffer, &cb));
    EXPECT_EQ(14u, cb) << "a larger buffer gets the data's size";
    DWORD value = 0;
    cb = sizeof(value);
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(Base(), W("Number"), nullptr, nullptr,
                                              reinterpret_cast<LPBYTE>(&value), &cb));
    EXPECT_EQ(42u, value);
    EXPECT_EQ(4u, cb);

    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, Query(Base(), W("Absent"), &cb));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, RegDeleteValueW(Base(), W("Absent")));
    DWORD reserved = 0;
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegQueryValueExW(Base(), W("Number"), nullptr, nullptr, buffer, nullptr));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegQueryValueExW(Base(), W("Number"), &reserved, nullptr, nullptr, nullptr));
    EXPECT_WIN32(ERROR_NOACCESS, RegSetValueExW(Base(), W("Number"), 0, REG_DWORD, nullptr, 4));
    EXPECT_EQ(ERROR_SUCCESS, RegSetValueExW(Base(), W("Empty"), 0, REG_BINARY, nullptr, 0));

    // A string whose count leaves out the terminator that follows it is stored with it.
    const WCHAR text[] = W("abc");
    ASSERT_EQ(ERROR_SUCCESS, RegSetValueExW(Base(), W("Short"), 0, REG_SZ,
                                            reinterpret_cast<const BYTE*>(text), 6));
    EXPECT_EQ(StringBytes(W("abc")), GetBytes(Base(), W("Short")));
}

TEST_F(RegistryValuesTest, NamesFoldCaseKeepTheFirstSpellingAndObeyTheLimit)
{
    // The default value is the null or empty name; a new key has none.
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, Query(Base(), nullptr));
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), nullptr, W("default")));
    EXPECT_EQ(StringBytes(W("default")), GetBytes(Base(), W("")));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteValueW(Base(), W("")));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, Query(Base(), nullptr));

    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), W("TimeOut"), 5));
    EXPECT_EQ(DwordBytes(5), GetBytes(Base(), W("TIMEOUT")));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), W("timeout"), 6));
    WCHAR name[16];
    DWORD cch = ARRAYSIZE(name);
    ASSERT_EQ(ERROR_SUCCESS,
              RegEnumValueW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(orvtest::WString(W("TimeOut")), orvtest::WString(name, cch));
    EXPECT_EQ(1u, QueryInfo(Base()).cValues);
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteValueW(Base(), W("TIMEOUT")));

    const orvtest::WString unicode = W("Ch\u00e2ssis \u6f22\u5b57 \U0001F600");
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), unicode.c_str(), unicode));
    EXPECT_EQ(StringBytes(unicode), GetBytes(Base(), unicode.c_str()));

    orvtest::WString longest(16383, W('v'));
    EXPECT_EQ(ERROR_SUCCESS, SetDword(Base(), longest.c_str(), 1));
    EXPECT_EQ(DwordBytes(1), GetBytes(Base(), longest.c_str()));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, SetDword(Base(), (longest + W("v")).c_str(), 1));
}

} // namespace
