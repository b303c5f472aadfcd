// Shared pieces of the event log tests: reading the log back and describing reports.
#pragma once

#include "pal/eventlog.h"
#include "pal/paleventlog.h"
#include "tests/support/paltest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvtest::eventlog {

// Every event of the test's machine root, oldest first (the query's filters when given).
inline std::vector<pal::EventLogRecord> ReadAll(const pal::EventLogQuery& query = {})
{
    std::vector<pal::EventLogRecord> records;
    DWORD dwError = pal::ReadEventLog(query, &records);
    EXPECT_EQ(DWORD(ERROR_SUCCESS), dwError);
    return records;
}

// An event source handle deregistered at scope exit.
class ScopedSource
{
public:
    explicit ScopedSource(const WCHAR* name) : m_h(RegisterEventSourceW(nullptr, name)) {}
    ScopedSource(const ScopedSource&) = delete;
    ScopedSource& operator=(const ScopedSource&) = delete;
    ~ScopedSource()
    {
        if (m_h)
            DeregisterEventSource(m_h);
    }
    HANDLE Get() const { return m_h; }
    operator HANDLE() const { return m_h; }

private:
    HANDLE m_h;
};

// Reports `strings` and `data` with EVENTLOG_INFORMATION_TYPE and category 0.
inline BOOL Report(HANDLE h, DWORD dwEventId, std::vector<std::u16string> strings = {},
                   std::vector<BYTE> data = {})
{
    std::vector<LPCWSTR> pointers;
    for (const auto& s : strings)
        pointers.push_back(s.c_str());
    return ReportEventW(h, EVENTLOG_INFORMATION_TYPE, 0, dwEventId, nullptr,
                        static_cast<WORD>(pointers.size()), static_cast<DWORD>(data.size()),
                        pointers.empty() ? nullptr : pointers.data(),
                        data.empty() ? nullptr : data.data());
}

} // namespace orvtest::eventlog
