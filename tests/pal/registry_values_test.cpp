// Conformance of RegSetValueExW, RegQueryValueExW and RegDeleteValueW.
#include "tests/pal/registry_testing.h"

#include <string>

namespace {

using orvtest::registry::DwordBytes;
using orvtest::registry::ScopedKey;
using orvtest::registry::StringBytes;
using RegistryValuesTest = orvtest::registry::RegistryTest;

struct TypeCase
{
    const char* label;
    DWORD dwType;
    std::vector<BYTE> data;
};

void PrintTo(const TypeCase& c, std::ostream* os)
{
    *os << c.label;
}

class RegistryValueTypeTest : public orvtest::registry::RegistryTest,
                              public ::testing::WithParamInterface<TypeCase>
{};

TEST_P(RegistryValueTypeTest, DataComesBackByteForByte)
{
    const TypeCase& c = GetParam();
    ASSERT_EQ(ERROR_SUCCESS, SetBytes(Base(), u"Value", c.dwType, c.data));
    DWORD dwType = 0xFFFF;
    EXPECT_EQ(c.data, GetBytes(Base(), u"Value", &dwType));
    EXPECT_EQ(c.dwType, dwType);
}

INSTANTIATE_TEST_SUITE_P(
    Types, RegistryValueTypeTest,
    ::testing::Values(TypeCase{"Sz", REG_SZ, StringBytes(u"Orvane")},
                      TypeCase{"SzWithoutTerminator", REG_SZ, StringBytes(u"Orvane", false)},
                      TypeCase{"ExpandSz", REG_EXPAND_SZ, StringBytes(u"%SystemRoot%\\x")},
                      TypeCase{"MultiSz", REG_MULTI_SZ,
                               StringBytes(std::u16string(u"a\0bc\0\0", 6), false)},
                      TypeCase{"Dword", REG_DWORD, DwordBytes(0xDEADBEEF)},
                      TypeCase{"Qword", REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8}},
                      TypeCase{"Binary", REG_BINARY, {0, 0xFF, 0, 0x10}},
                      TypeCase{"BinaryEmpty", REG_BINARY, {}}, TypeCase{"None", REG_NONE, {9}},
                      TypeCase{"OddLengthString", REG_SZ, {'a', 0, 'b'}},
                      TypeCase{"UnknownType", 0x1234, {1, 2}}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(RegistryValuesTest, SizeQueryWithoutBuffer)
{
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), u"Name", u"abc"));
    DWORD dwType = 0;
    DWORD cb = 0;
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(Base(), u"Name", nullptr, &dwType, nullptr, &cb));
    EXPECT_EQ(8u, cb);
    EXPECT_EQ(DWORD(REG_SZ), dwType);
    EXPECT_EQ(ERROR_SUCCESS, RegQueryValueExW(Base(), u"Name", nullptr, nullptr, nullptr, nullptr))
        << "only whether it exists";
}

TEST_F(RegistryValuesTest, SmallBufferGivesMoreDataAndTheSizeNeeded)
{
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), u"Name", u"abcdef"));
    BYTE buffer[4] = {0x55, 0x55, 0x55, 0x55};
    DWORD cb = sizeof(buffer);
    DWORD dwType = 0;
    EXPECT_WIN32(ERROR_MORE_DATA, RegQueryValueExW(Base(), u"Name", nullptr, &dwType, buffer, &cb));
    EXPECT_EQ(14u, cb);
    EXPECT_EQ(DWORD(REG_SZ), dwType);
}

TEST_F(RegistryValuesTest, ExactBufferSucceeds)
{
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"Number", 42));
    DWORD value = 0;
    DWORD cb = sizeof(value);
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(Base(), u"Number", nullptr, nullptr,
                                              reinterpret_cast<LPBYTE>(&value), &cb));
    EXPECT_EQ(42u, value);
    EXPECT_EQ(4u, cb);
}

TEST_F(RegistryValuesTest, LargerBufferReportsTheDataSize)
{
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), u"Name", u"ab"));
    BYTE buffer[64];
    DWORD cb = sizeof(buffer);
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(Base(), u"Name", nullptr, nullptr, buffer, &cb));
    EXPECT_EQ(6u, cb);
}

TEST_F(RegistryValuesTest, MissingValueIsFileNotFound)
{
    DWORD cb = 0;
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND,
                 RegQueryValueExW(Base(), u"Absent", nullptr, nullptr, nullptr, &cb));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, RegDeleteValueW(Base(), u"Absent"));
}

TEST_F(RegistryValuesTest, BadParameters)
{
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"Number", 1));
    BYTE buffer[4];
    DWORD reserved = 0;
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegQueryValueExW(Base(), u"Number", nullptr, nullptr, buffer, nullptr));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegQueryValueExW(Base(), u"Number", &reserved, nullptr, nullptr, nullptr));
    EXPECT_WIN32(ERROR_NOACCESS, RegSetValueExW(Base(), u"Number", 0, REG_DWORD, nullptr, 4));
    EXPECT_EQ(ERROR_SUCCESS, RegSetValueExW(Base(), u"Empty", 0, REG_BINARY, nullptr, 0));
}

TEST_F(RegistryValuesTest, ValueNamesAreCaseInsensitiveAndCasePreserving)
{
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"TimeOut", 5));
    EXPECT_EQ(DwordBytes(5), GetBytes(Base(), u"TIMEOUT"));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"timeout", 6));
    WCHAR name[16];
    DWORD cch = ARRAYSIZE(name);
    ASSERT_EQ(ERROR_SUCCESS,
              RegEnumValueW(Base(), 0, name, &cch, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(std::u16string(u"TimeOut"), std::u16string(name, cch))
        << "the first writer's spelling stays";
    DWORD cValues = 0;
    ASSERT_EQ(ERROR_SUCCESS,
              RegQueryInfoKeyW(Base(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               &cValues, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(1u, cValues);
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteValueW(Base(), u"TIMEOUT"));
}

TEST_F(RegistryValuesTest, DefaultValueIsNullOrEmptyName)
{
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND,
                 RegQueryValueExW(Base(), nullptr, nullptr, nullptr, nullptr, nullptr))
        << "a new key has no default value";
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), nullptr, u"default"));
    EXPECT_EQ(StringBytes(u"default"), GetBytes(Base(), u""));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteValueW(Base(), u""));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND,
                 RegQueryValueExW(Base(), nullptr, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(RegistryValuesTest, OverwriteReplacesTypeAndData)
{
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), u"Shape", u"long string value"));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"Shape", 3));
    DWORD dwType = 0;
    EXPECT_EQ(DwordBytes(3), GetBytes(Base(), u"Shape", &dwType));
    EXPECT_EQ(DWORD(REG_DWORD), dwType);
}

TEST_F(RegistryValuesTest, ValueNameLengthLimit)
{
    std::u16string longest(16383, u'v');
    EXPECT_EQ(ERROR_SUCCESS, SetDword(Base(), longest.c_str(), 1));
    EXPECT_EQ(DwordBytes(1), GetBytes(Base(), longest.c_str()));
    std::u16string tooLong(16384, u'v');
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, SetDword(Base(), tooLong.c_str(), 1));
}

TEST_F(RegistryValuesTest, NonAsciiNamesAndData)
{
    const std::u16string name = u"Ch\u00e2ssis \u6f22\u5b57 \U0001F600";
    ASSERT_EQ(ERROR_SUCCESS, SetString(Base(), name.c_str(), name));
    EXPECT_EQ(StringBytes(name), GetBytes(Base(), name.c_str()));
}

TEST_F(RegistryValuesTest, LargeData)
{
    std::vector<BYTE> data(1 << 20);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<BYTE>(i * 7);
    ASSERT_EQ(ERROR_SUCCESS, SetBytes(Base(), u"Big", REG_BINARY, data));
    EXPECT_EQ(data, GetBytes(Base(), u"Big"));
}

TEST_F(RegistryValuesTest, ValuesSurviveReopeningTheKey)
{
    {
        ScopedKey key(Create(u"Reopen"));
        ASSERT_EQ(ERROR_SUCCESS, SetDword(key, u"n", 11));
    }
    ScopedKey key;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software\\OrvTest\\Reopen", 0,
                                           KEY_READ, key.Out()));
    EXPECT_EQ(DwordBytes(11), GetBytes(key, u"n"));
}

} // namespace
