// Configuration tests: the Parameters key under a fresh machine root, helpers to change it, and
// the configuration reset to its start-up state around each test.
#pragma once

#include "diag/config.h"
#include "tests/diag/support/tracefixture.h"

#include <string>

namespace orvtest {

class ConfigTest : public TraceTest
{
protected:
    void SetUp() override;
    void TearDown() override;

    static void CreateParametersKey();
    static void SetDword(LPCWSTR pszName, DWORD dwValue);
    static void SetString(LPCWSTR pszName, const std::u16string& value);
    static void DeleteValue(LPCWSTR pszName);
    // Waits until the configuration watcher has armed its notification: a change made before
    // that would go unseen.
    static void WaitForWatcher();
    // Occurrences of `text` in the captured debugger output so far (kept across calls).
    size_t CountInOutput(const std::string& text);
    const std::string& Output();

private:
    std::string m_output;
};

} // namespace orvtest
