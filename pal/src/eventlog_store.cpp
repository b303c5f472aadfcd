// The event log's SQLite store. Reports come from any thread of any process that shares the
// machine root: a process keeps one connection, serialised by one lock, and every report is
// one write transaction, so SQLite's file locks order the reports of all processes and the
// busy timeout makes a writer wait for another's commit rather than fail.
#include "eventlog_store.h"

#include "internal.h"
#include "pal/winerror.h"

#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

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

// Thrown inside this file only; every entry point turns it into a Win32 error.
struct SqlError
{
    int rc;
};

void Check(int rc)
{
    if (rc != SQLITE_OK && rc != SQLITE_ROW && rc != SQLITE_DONE)
        throw SqlError{rc};
}

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

// A prepared statement of the connection's cache, reset when this wrapper goes out of scope.
class Statement
{
public:
    explicit Statement(sqlite3_stmt* pStmt) : m_pStmt(pStmt) {}
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement()
    {
        sqlite3_reset(m_pStmt);
        sqlite3_clear_bindings(m_pStmt);
    }

    Statement& Bind(int index, LONGLONG value)
    {
        Check(sqlite3_bind_int64(m_pStmt, index, value));
        return *this;
    }
    Statement& Bind(int index, const std::string& text)
    {
        Check(sqlite3_bind_text(m_pStmt, index, text.data(), static_cast<int>(text.size()),
                                SQLITE_TRANSIENT));
        return *this;
    }
    Statement& BindBlob(int index, const std::vector<BYTE>& bytes)
    {
        // A zero-length blob must still be a blob, not NULL.
        static const BYTE kEmpty = 0;
        Check(sqlite3_bind_blob64(m_pStmt, index, bytes.empty() ? &kEmpty : bytes.data(),
                                  bytes.size(), SQLITE_TRANSIENT));
        return *this;
    }
    Statement& BindNull(int index)
    {
        Check(sqlite3_bind_null(m_pStmt, index));
        return *this;
    }
    bool Step()
    {
        int rc = sqlite3_step(m_pStmt);
        if (rc == SQLITE_ROW)
            return true;
        if (rc == SQLITE_DONE)
            return false;
        throw SqlError{rc};
    }
    LONGLONG Int64(int column) const { return sqlite3_column_int64(m_pStmt, column); }
    std::string Text(int column) const
    {
        const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(m_pStmt, column));
        int cb = sqlite3_column_bytes(m_pStmt, column);
        return p ? std::string(p, static_cast<size_t>(cb)) : std::string();
    }
    std::vector<BYTE> Blob(int column) const
    {
        const auto* p = static_cast<const BYTE*>(sqlite3_column_blob(m_pStmt, column));
        int cb = sqlite3_column_bytes(m_pStmt, column);
        return p ? std::vector<BYTE>(p, p + cb) : std::vector<BYTE>();
    }
    bool IsNull(int column) const { return sqlite3_column_type(m_pStmt, column) == SQLITE_NULL; }

private:
    sqlite3_stmt* m_pStmt;
};

class Connection
{
public:
    static std::unique_ptr<Connection> Open(const std::string& path)
    {
        sqlite3* pDb = nullptr;
        int rc = pal::OpenMachineDatabase(path, &pDb);
        if (rc != SQLITE_OK)
            throw SqlError{rc};
        std::unique_ptr<Connection> pConn(new Connection(pDb));
        pConn->Exec("BEGIN IMMEDIATE");
        try {
            for (const char* sql : kSchema)
                pConn->Exec(sql);
            pConn->Exec("COMMIT");
        } catch (const SqlError&) {
            sqlite3_exec(pDb, "ROLLBACK", nullptr, nullptr, nullptr);
            throw;
        }
        return pConn;
    }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection()
    {
        for (auto& [sql, pStmt] : m_statements)
            sqlite3_finalize(pStmt);
        sqlite3_close(m_pDb);
    }

    // `sql` must be a string literal: statements are cached by its address.
    Statement Prepare(const char* sql)
    {
        auto it = m_statements.find(sql);
        if (it != m_statements.end())
            return Statement(it->second);
        sqlite3_stmt* pStmt = nullptr;
        Check(sqlite3_prepare_v3(m_pDb, sql, -1, SQLITE_PREPARE_PERSISTENT, &pStmt, nullptr));
        m_statements.emplace(sql, pStmt);
        return Statement(pStmt);
    }

    // A statement built at run time; finalised by the caller's holder.
    sqlite3_stmt* PrepareOnce(const std::string& sql)
    {
        sqlite3_stmt* pStmt = nullptr;
        Check(sqlite3_prepare_v2(m_pDb, sql.c_str(), -1, &pStmt, nullptr));
        return pStmt;
    }

    void Exec(const char* sql) { Check(sqlite3_exec(m_pDb, sql, nullptr, nullptr, nullptr)); }
    bool InAutocommit() const { return sqlite3_get_autocommit(m_pDb) != 0; }

private:
    explicit Connection(sqlite3* pDb) : m_pDb(pDb) {}

    sqlite3* m_pDb;
    std::unordered_map<const char*, sqlite3_stmt*> m_statements;
};

// Rolls back whatever the transaction left open when it did not commit.
class WriteTransaction
{
public:
    explicit WriteTransaction(Connection& conn) : m_conn(conn)
    {
        m_conn.Prepare("BEGIN IMMEDIATE").Step();
    }
    WriteTransaction(const WriteTransaction&) = delete;
    WriteTransaction& operator=(const WriteTransaction&) = delete;
    ~WriteTransaction()
    {
        if (!m_fCommitted && !m_conn.InAutocommit()) {
            try {
                m_conn.Prepare("ROLLBACK").Step();
            } catch (const SqlError&) {
                // Nothing more can be done; the connection rolls back when it closes.
            }
        }
    }
    void Commit()
    {
        m_conn.Prepare("COMMIT").Step();
        m_fCommitted = true;
    }

private:
    Connection& m_conn;
    bool m_fCommitted = false;
};

struct Session
{
    std::mutex lock;
    std::string rootSetting; // $ORVSIM_ROOT when the connection was opened
    std::unique_ptr<Connection> pConn;
};

Session& TheSession()
{
    static Session session;
    return session;
}

// With the session lock held: the connection for the current machine root.
Connection& CurrentConnection()
{
    Session& s = TheSession();
    const char* env = std::getenv("ORVSIM_ROOT");
    std::string setting = env ? env : "";
    if (s.pConn && setting == s.rootSetting)
        return *s.pConn;
    s.pConn.reset();
    s.pConn = Connection::Open(pal::MachineRoot() + "/eventlog.db");
    s.rootSetting = setting;
    return *s.pConn;
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

// Owns a statement prepared for one query.
struct FinalizeStatement
{
    void operator()(sqlite3_stmt* pStmt) const { sqlite3_finalize(pStmt); }
};

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
    Session& s = TheSession();
    std::lock_guard lock(s.lock);
    try {
        Connection& conn = CurrentConnection();
        WriteTransaction tx(conn);
        // Taken once the write lock is held, so that the time written never goes back from
        // one record to the next, whichever process wrote them.
        ULONGLONG ullWritten = FileTimeNow();
        {
            Statement insert = conn.Prepare(
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

    Session& s = TheSession();
    std::lock_guard lock(s.lock);
    try {
        Connection& conn = CurrentConnection();
        std::unique_ptr<sqlite3_stmt, FinalizeStatement> pStmt(conn.PrepareOnce(sql));
        Statement select(pStmt.get());
        if (!query.source.empty())
            select.Bind(1, ToUtf8(query.source));
        std::vector<EventLogRecord> records;
        while (select.Step()) {
            EventLogRecord r;
            r.ullRecordNumber = static_cast<ULONGLONG>(select.Int64(0));
            r.ullTimeGenerated = static_cast<ULONGLONG>(select.Int64(1));
            r.ullTimeWritten = static_cast<ULONGLONG>(select.Int64(2));
            r.source = ToUtf16(select.Text(3));
            r.computer = ToUtf16(select.Text(4));
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
