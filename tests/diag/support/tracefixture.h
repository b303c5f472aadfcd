// A trace log reset around each test, with helpers to prepare and read trace files.
#pragma once

#include "diag/trace.h"
#include "diag/tracestate.h"
#include "tests/support/paltest.h"

#include <filesystem>
#include <string>

namespace orvtest {

class TraceTest : public PalTest
{
protected:
    void SetUp() override;
    void TearDown() override;

    // The trace directory as TraceInit wants it: ending with a separator.
    std::u16string TraceDir() const;
    // Sets the local date (and time) the log sees.
    static void SetDate(WORD wMonth, WORD wDay, WORD wHour = 10, WORD wMinute = 0);
    // Reads the open file and its number under the trace lock, for tests where another thread
    // may change them.
    static bool IsFileOpenLocked();
    static DWORD SequenceLocked();
    void WriteFile(const std::string& name, const std::string& content) const;
    std::string ReadFile(const std::string& name) const;
    bool Exists(const std::string& name) const;

    std::filesystem::path m_dir;
};

} // namespace orvtest
