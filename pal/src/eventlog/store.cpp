// The event log's SQLite store. Reports come from any thread of any process that shares the
// machine root: a process keeps one connection, serialised by one lock, and every report is
// one write transaction, so SQLite's file locks order the reports of all processes and the
// busy timeout makes a writer wait for another's commit rather than fail.
#include "pal/src/eventlog/store.h"

#include "pal/src/base/internal.h"
#include "pal/src/base/sqlitedb.h"

#include "pal/winerror.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#ifndef ERROR_EVENTLOG_FILE_CORRUPT
#define ERROR_EVENTLOG_FILE_CORRUPT 1500L
#endif
#ifndef ERROR_LOG_FILE_FULL
#define ERROR_LOG_FILE_FULL 1502L
#endif

namespace pal::detail::eventlog {

namespace {

const char* const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS events("
    " record INTEGER PRIMARY KEY AUTOINCREMENT,"
    " time_generated INTEGER NOT NULL,"
    " time_written INTEGER NOT NULL,"
    " source TEXT NOT NULL,"
    " computer TEXT NOT NULL,"
    " type INTEGER NOT NULL,"
    " category INTEGER NOT NULL,"
    " event_id INTEGER NOT NULL,"
    " user_sid BLOB,"
    " num_strings INTEGER NOT NULL,"
    " strings BLOB NOT NULL,"
    " data BLOB NOT NULL,"
    " process_id INTEGER NOT NULL,"
    " thread_id INTEGER NOT NULL)",
    "CREATE INDEX IF NOT EXISTS events_source ON events(source COLLATE NOCASE, record)",
    "PRAGMA user_version = 1",
};

DWORD Win32FromSqlite(int rc, bool fWrite)
{
    switch (rc & 0xFF) {
    case SQLITE_OK:
    case SQLITE_DONE:
    case SQLITE_ROW:
        return ERROR_SUCCESS;
    case SQLITE_NOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case SQLITE_FULL:
        return ERROR_LOG_FILE_FULL;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return ERROR_EVENTLOG_FILE_CORRUPT;
    case SQLITE_PERM:
    case SQLITE_READONLY:
    case SQLITE_AUTH:
    case SQLITE_CANTOPEN:
        return ERROR_ACCESS_DENIED;
    case SQLITE_TOOBIG:
        return ERROR_INVALID_PARAMETER;
    default: // I/O errors, a database still locked after the busy timeout
        return fWrite ? ERROR_WRITE_FAULT : ERROR_READ_FAULT;
    }
}

MachineStore& Store()
{
    static MachineStore store("eventlog.db", kSchema);
    return store;
}

// The strings as EVENTLOGRECORD keeps them: each one in UTF-16LE followed by its terminator.
std::vector<BYTE> PackStrings(const std::vector<std::u16string>& strings)
{
    std::vector<BYTE> bytes;
    for (const std::u16string& s : strings) {
        for (char16_t c : s) {
            bytes.push_back(static_cast<BYTE>(c & 0xFF));
            bytes.push_back(static_cast<BYTE>(c >> 8));
        }
        bytes.push_back(0);
        bytes.push_back(0);
    }
    return bytes;
}

std::vector<std::u16string> UnpackStrings(const std::vector<BYTE>& bytes, size_t cStrings)
{
    std::vector<std::u16string> strings;
    std::u16string current;
    for (size_t i = 0; i + 1 < bytes.size() && strings.size() < cStrings; i += 2) {
        char16_t c = static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8));
        if (c == 0) {
            strings.push_back(std::move(current));
            current.clear();
        } else {
            current.push_back(c);
        }
    }
    strings.resize(cStrings);
    return strings;
}

} // namespace

ULONGLONG FileTimeNow()
{
    constexpr ULONGLONG kUnixEpochAsFileTime = 116444736000000000ull;
    auto since1970 = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return kUnixEpochAsFileTime + static_cast<ULONGLONG>(since1970.count() / 100);
}

DWORD AppendEvent(const EventLogRecord& record)
{
    MachineStore& store = Store();
    std::lock_guard lock(store.Lock());
    try {
        SqlConnection& conn = store.Connection();
        SqlTransaction tx(conn, true);
        // Taken once the write lock is held, so that the time written never goes back from
        // one record to the next, whichever process wrote them.
        ULONGLONG ullWritten = FileTimeNow();
        {
            SqlStatement insert = conn.Prepare(
                "INSERT INTO events(time_generated, time_written, source, computer, type,"
                " category, event_id, user_sid, num_strings, strings, data, process_id,"
                " thread_id) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13)");
            insert.Bind(1, static_cast<LONGLONG>(record.ullTimeGenerated))
                .Bind(2, static_cast<LONGLONG>(ullWritten))
                .Bind(3, ToUtf8(record.source))
                .Bind(4, ToUtf8(record.computer))
                .Bind(5, record.wType)
                .Bind(6, record.wCategory)
                .Bind(7, static_cast<LONGLONG>(record.dwEventId))
                .Bind(9, static_cast<LONGLONG>(record.strings.size()))
                .BindBlob(10, PackStrings(record.strings))
                .BindBlob(11, record.data)
                .Bind(12, record.dwProcessId)
                .Bind(13, record.dwThreadId);
            if (record.userSid.empty())
                insert.BindNull(8);
            else
                insert.BindBlob(8, record.userSid);
            insert.Step();
        }
        tx.Commit();
        return ERROR_SUCCESS;
    } catch (const SqlError& e) {
        return Win32FromSqlite(e.rc, true);
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

DWORD QueryEvents(const EventLogQuery& query, std::vector<EventLogRecord>* pRecords)
{
    pRecords->clear();
    // Built from numbers and placeholders only; the source is bound.
    std::string where = " WHERE 1";
    if (!query.source.empty())
        where += " AND source = ?1 COLLATE NOCASE";
    if (!query.types.empty()) {
        where += " AND type IN (";
        for (size_t i = 0; i < query.types.size(); ++i)
            where += (i ? "," : "") + std::to_string(query.types[i]);
        where += ")";
    }
    const std::string columns =
        "record, time_generated, time_written, source, computer, type, category, event_id,"
        " user_sid, num_strings, strings, data, process_id, thread_id";
    std::string sql = "SELECT " + columns + " FROM events" + where + " ORDER BY record";
    if (query.cLast != 0)
        sql = "SELECT * FROM (SELECT " + columns + " FROM events" + where +
              " ORDER BY record DESC LIMIT " + std::to_string(query.cLast) + ") ORDER BY record";

    MachineStore& store = Store();
    std::lock_guard lock(store.Lock());
    try {
        SqlConnection& conn = store.Connection();
        SqlOneTimeStatement pStmt = conn.PrepareOnce(sql);
        SqlStatement select(pStmt.get());
        if (!query.source.empty())
            select.Bind(1, ToUtf8(query.source));
        std::vector<EventLogRecord> records;
        while (select.Step()) {
            EventLogRecord r;
            r.ullRecordNumber = static_cast<ULONGLONG>(select.Int64(0));
            r.ullTimeGenerated = static_cast<ULONGLONG>(select.Int64(1));
            r.ullTimeWritten = static_cast<ULONGLONG>(select.Int64(2));
            r.source = select.Text16(3);
            r.computer = select.Text16(4);
            r.wType = static_cast<WORD>(select.Int64(5));
            r.wCategory = static_cast<WORD>(select.Int64(6));
            r.dwEventId = static_cast<DWORD>(select.Int64(7));
            if (!select.IsNull(8))
                r.userSid = select.Blob(8);
            r.strings = UnpackStrings(select.Blob(10), static_cast<size_t>(select.Int64(9)));
            r.data = select.Blob(11);
            r.dwProcessId = static_cast<DWORD>(select.Int64(12));
            r.dwThreadId = static_cast<DWORD>(select.Int64(13));
            records.push_back(std::move(r));
        }
        *pRecords = std::move(records);
        return ERROR_SUCCESS;
    } catch (const SqlError& e) {
        return Win32FromSqlite(e.rc, false);
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

} // namespace pal::detail::eventlog
