// Reading the emulated machine's event log back, for tools and tests (the system itself only
// reports, through pal/eventlog.h). System code never includes this header.
#pragma once

#include "pal/windef.h"

#include <string>
#include <vector>

namespace pal {

// One report as it was written, with every field ReportEventW was given.
struct EventLogRecord
{
    ULONGLONG ullRecordNumber = 0;  // 1, 2, ... in the order the reports were written
    ULONGLONG ullTimeGenerated = 0; // FILETIME (UTC) when ReportEventW was called
    ULONGLONG ullTimeWritten = 0;   // FILETIME (UTC) when the report was stored
    std::u16string source;
    std::u16string computer;
    WORD wType = 0;
    WORD wCategory = 0;
    DWORD dwEventId = 0;       // the full 32-bit id
    std::vector<BYTE> userSid; // empty when no SID was given
    std::vector<std::u16string> strings;
    std::vector<BYTE> data; // the raw data bytes; empty when none
    DWORD dwProcessId = 0;
    DWORD dwThreadId = 0;
};

struct EventLogQuery
{
    // Only this source (compared without regard to case); empty for every source.
    std::u16string source;
    // Only these event types (EVENTLOG_*); empty for every type.
    std::vector<WORD> types;
    // Only the newest this many of the matching events; 0 for all.
    size_t cLast = 0;
};

// The matching events of the machine root, oldest first. Returns ERROR_SUCCESS or the Win32
// error of a failed read (the records are then empty).
DWORD ReadEventLog(const EventLogQuery& query, std::vector<EventLogRecord>* pRecords);

// The computer name that reports carry: the host name up to its first dot, in upper case, at
// most 15 characters, as GetComputerNameW gives it.
std::u16string EventLogComputerName();

} // namespace pal
