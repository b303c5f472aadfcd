#include "tests/diag/support/configfixture.h"

namespace orvtest {

void ConfigTest::SetUp()
{
    TraceTest::SetUp();
    CConfig::ResetForTest();
}

void ConfigTest::TearDown()
{
    CConfig::Terminate();
    CConfig::ResetForTest();
    TraceTest::TearDown();
}

void ConfigTest::CreateParametersKey()
{
    CRegKey key;
    ASSERT_EQ(ERROR_SUCCESS, key.Create(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_ALL_ACCESS));
}

void ConfigTest::SetDword(LPCWSTR pszName, DWORD dwValue)
{
    CRegKey key;
    ASSERT_EQ(ERROR_SUCCESS, key.Create(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_ALL_ACCESS));
    ASSERT_EQ(ERROR_SUCCESS, key.SetDWORDValue(pszName, dwValue));
}

void ConfigTest::SetString(LPCWSTR pszName, const std::u16string& value)
{
    CRegKey key;
    ASSERT_EQ(ERROR_SUCCESS, key.Create(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_ALL_ACCESS));
    ASSERT_EQ(ERROR_SUCCESS, key.SetStringValue(pszName, value.c_str()));
}

void ConfigTest::DeleteValue(LPCWSTR pszName)
{
    CRegKey key;
    ASSERT_EQ(ERROR_SUCCESS, key.Open(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_ALL_ACCESS));
    ASSERT_EQ(ERROR_SUCCESS, key.DeleteValue(pszName));
}

void ConfigTest::WaitForWatcher()
{
    ASSERT_TRUE(WaitUntil([] { return pal::ArmedRegistryNotifications() == 1; }));
}

const std::string& ConfigTest::Output()
{
    m_output += pal::TakeDebugOutputText();
    return m_output;
}

size_t ConfigTest::CountInOutput(const std::string& text)
{
    const std::string& output = Output();
    size_t count = 0;
    for (size_t at = output.find(text); at != std::string::npos; at = output.find(text, at + 1))
        ++count;
    return count;
}

} // namespace orvtest
