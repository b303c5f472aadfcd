// The event log's SQLite store: one connection per process to <machine root>/eventlog.db,
// reopened when $ORVSIM_ROOT changes. The schema is described in docs/ARCHITECTURE.md
// ("Event log, messages and error codes").
#pragma once

#include "pal/paleventlog.h"
#include "pal/windef.h"

#include <vector>

namespace pal::detail::eventlog {

// Stores one report; its record number and time written are assigned here. Returns
// ERROR_SUCCESS or the Win32 error of the failed write. Thread-safe.
DWORD AppendEvent(const EventLogRecord& record);

// The matching reports, oldest first. Thread-safe.
DWORD QueryEvents(const EventLogQuery& query, std::vector<EventLogRecord>* pRecords);

// Now, as a FILETIME: 100-nanosecond intervals since 1601-01-01 UTC.
ULONGLONG FileTimeNow();

} // namespace pal::detail::eventlog
