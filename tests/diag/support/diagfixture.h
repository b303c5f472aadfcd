// The fixtures of the diag tests: a trace log reset around each test with helpers to prepare and
// read trace files, and the configuration at its start-up state with helpers to change the
// Parameters key.
#pragma once

#include "diag/config.h"
#include "diag/trace.h"
#include "diag/tracestate.h"
#include "tests/support/paltest.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace orvtest {

class TraceTest : public PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        m_dir = MakeDir("bin");
        TraceInit(TRACE_LEVEL_VERBOSE, nullptr, nullptr, 0);
    }
    void TearDown() override
    {
        TraceClose();
        TraceInit(TRACE_LEVEL_VERBOSE, nullptr, nullptr, 0);
        PalTest::TearDown();
    }

    // The trace directory as TraceInit wants it: ending with a separator.
    std::u16string TraceDir() const { return Wide(m_dir.string() + "/"); }
    // Sets the local date (and time) the log sees.
    static void SetDate(WORD wMonth, WORD wDay, WORD wHour = 10, WORD wMinute = 0)
    {
        pal::SetLocalTimeForTest({2026, wMonth, 0, wDay, wHour, wMinute, 0, 0});
    }
    // Trace state read under the trace lock, for tests where another thread may change it.
    template <class F>
    static auto Locked(F read)
    {
        EnterCriticalSection(&g_traceLock);
        auto value = read();
        LeaveCriticalSection(&g_traceLock);
        return value;
    }
    static bool IsFileOpenLocked()
    {
        return Locked([] { return g_trace.pFile != nullptr; });
    }
    static DWORD SequenceLocked()
    {
        return Locked([] { return g_trace.dwSequence; });
    }
    void WriteFile(const std::string& name, const std::string& content) const
    {
        std::ofstream(m_dir / name, std::ios::binary) << content;
    }
    std::string ReadFile(const std::string& name) const
    {
        std::ifstream in(m_dir / name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    bool Exists(const std::string& name) const { return std::filesystem::exists(m_dir / name); }

    std::filesystem::path m_dir;
};

class ConfigTest : public TraceTest
{
protected:
    void SetUp() override
    {
        TraceTest::SetUp();
        CConfig::ResetForTest();
    }
    void TearDown() override
    {
        CConfig::Terminate();
        CConfig::ResetForTest();
        TraceTest::TearDown();
    }

    // The Parameters key, created when missing, with every right.
    static CRegKey Params()
    {
        CRegKey key;
        EXPECT_EQ(ERROR_SUCCESS,
                  key.Create(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY, KEY_ALL_ACCESS));
        return key;
    }
    static void SetDword(LPCWSTR pszName, DWORD dwValue)
    {
        ASSERT_EQ(ERROR_SUCCESS, Params().SetDWORDValue(pszName, dwValue));
    }
    static void SetString(LPCWSTR pszName, const std::u16string& value)
    {
        ASSERT_EQ(ERROR_SUCCESS, Params().SetStringValue(pszName, value.c_str()));
    }
    // Waits until the configuration watcher has armed its notification: a change made before
    // that would go unseen.
    static void WaitForWatcher()
    {
        ASSERT_TRUE(WaitUntil([] { return pal::ArmedRegistryNotifications() == 1; }));
    }
    // The debugger output captured since the last ClearOutput, and the occurrences of `text` in
    // it.
    const std::string& Output() { return m_output += pal::TakeDebugOutputText(); }
    void ClearOutput()
    {
        pal::TakeDebugOutput();
        m_output.clear();
    }
    size_t CountInOutput(const std::string& text)
    {
        size_t count = 0;
        for (size_t at = Output().find(text); at != std::string::npos;
             at = m_output.find(text, at + 1))
            ++count;
        return count;
    }

private:
    std::string m_output;
};

} // namespace orvtest
