// The SQLite connection of the registry and the frame of a call.
#include "registry_store.h"

#include "registry_handles.h"
#include "registry_notify.h"

#include "internal.h"

#include <cstdlib>

namespace pal::detail::registry {

namespace {

const char* const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS keys("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " parent INTEGER REFERENCES keys(id) ON DELETE CASCADE,"
    " name TEXT NOT NULL,"
    " fold TEXT NOT NULL,"
    " class TEXT NOT NULL DEFAULT '',"
    " volatile INTEGER NOT NULL DEFAULT 0,"
    " last_write INTEGER NOT NULL DEFAULT 0,"
    " UNIQUE(parent, fold))",
    "CREATE TABLE IF NOT EXISTS vals("
    " id INTEGER PRIMARY KEY,"
    " key INTEGER NOT NULL REFERENCES keys(id) ON DELETE CASCADE,"
    " name TEXT NOT NULL,"
    " fold TEXT NOT NULL,"
    " type INTEGER NOT NULL,"
    " data BLOB NOT NULL,"
    " UNIQUE(key, fold))",
    "CREATE TABLE IF NOT EXISTS changes("
    " seq INTEGER PRIMARY KEY AUTOINCREMENT,"
    " path TEXT NOT NULL,"
    " kind INTEGER NOT NULL)",
    // The roots have fixed ids; their names are the abbreviations used in full paths.
    "INSERT OR IGNORE INTO keys(id, parent, name, fold) VALUES (1, NULL, 'HKLM', 'HKLM')",
    "INSERT OR IGNORE INTO keys(id, parent, name, fold) VALUES (2, NULL, 'HKCU', 'HKCU')",
    // HKEY_CLASSES_ROOT shows HKLM\Software\Classes, which must therefore exist.
    "INSERT OR IGNORE INTO keys(parent, name, fold) VALUES (1, 'Software', 'SOFTWARE')",
    "INSERT OR IGNORE INTO keys(parent, name, fold) SELECT id, 'Classes', 'CLASSES' FROM keys"
    " WHERE parent = 1 AND fold = 'SOFTWARE'",
    "INSERT OR IGNORE INTO keys(parent, name, fold) VALUES (2, 'Software', 'SOFTWARE')",
    "PRAGMA user_version = 1",
};

struct Session
{
    std::mutex lock;
    bool fOpened = false;
    std::string rootSetting; // $ORVSIM_ROOT when the connection was opened
    std::unique_ptr<Connection> pConn;
    ULONGLONG ullGeneration = 0;
};

Session& TheSession()
{
    static Session session;
    return session;
}

void Check(int rc)
{
    if (rc != SQLITE_OK && rc != SQLITE_ROW && rc != SQLITE_DONE)
        throw SqlError{rc};
}

} // namespace

LONG Win32FromSqlite(int rc)
{
    switch (rc & 0xFF) {
    case SQLITE_OK:
    case SQLITE_DONE:
    case SQLITE_ROW:
        return ERROR_SUCCESS;
    case SQLITE_NOMEM:
        return ERROR_OUTOFMEMORY;
    case SQLITE_FULL:
        return ERROR_DISK_FULL;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return ERROR_REGISTRY_CORRUPT;
    case SQLITE_PERM:
    case SQLITE_READONLY:
    case SQLITE_AUTH:
        return ERROR_ACCESS_DENIED;
    case SQLITE_TOOBIG:
        return ERROR_INVALID_PARAMETER;
    default: // I/O errors, a database still locked after the busy timeout, a file not opened
        return ERROR_REGISTRY_IO_FAILED;
    }
}

// ---- Statement ----

Statement::~Statement()
{
    sqlite3_reset(m_pStmt);
    sqlite3_clear_bindings(m_pStmt);
}

Statement& Statement::Bind(int index, LONGLONG value)
{
    int rc = sqlite3_bind_int64(m_pStmt, index, value);
    if (rc != SQLITE_OK)
        throw SqlError{rc};
    return *this;
}

Statement& Statement::Bind(int index, std::string_view text)
{
    int rc = sqlite3_bind_text(m_pStmt, index, text.data(), static_cast<int>(text.size()),
                               SQLITE_TRANSIENT);
    if (rc != SQLITE_OK)
        throw SqlError{rc};
    return *this;
}

Statement& Statement::BindBlob(int index, const void* pData, size_t cbData)
{
    // A zero-length blob must still be a blob, not NULL.
    static const BYTE kEmpty = 0;
    int rc =
        sqlite3_bind_blob64(m_pStmt, index, cbData ? pData : &kEmpty, cbData, SQLITE_TRANSIENT);
    if (rc != SQLITE_OK)
        throw SqlError{rc};
    return *this;
}

bool Statement::Step()
{
    int rc = sqlite3_step(m_pStmt);
    if (rc == SQLITE_ROW)
        return true;
    if (rc == SQLITE_DONE)
        return false;
    throw SqlError{rc};
}

LONGLONG Statement::Int64(int column) const
{
    return sqlite3_column_int64(m_pStmt, column);
}

bool Statement::IsNull(int column) const
{
    return sqlite3_column_type(m_pStmt, column) == SQLITE_NULL;
}

std::string_view Statement::Text(int column) const
{
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(m_pStmt, column));
    int cb = sqlite3_column_bytes(m_pStmt, column);
    return p ? std::string_view(p, static_cast<size_t>(cb)) : std::string_view();
}

std::u16string Statement::Text16(int column) const
{
    return ToUtf16(Text(column));
}

const BYTE* Statement::Blob(int column, size_t* pcb) const
{
    const auto* p = static_cast<const BYTE*>(sqlite3_column_blob(m_pStmt, column));
    *pcb = static_cast<size_t>(sqlite3_column_bytes(m_pStmt, column));
    return p;
}

// ---- Connection ----

std::unique_ptr<Connection> Connection::Open(const std::string& path)
{
    sqlite3* pDb = nullptr;
    int rc = pal::OpenMachineDatabase(path, &pDb);
    if (rc != SQLITE_OK)
        throw SqlError{rc};
    std::unique_ptr<Connection> pConn(new Connection(pDb));
    pConn->Exec("PRAGMA foreign_keys=ON");
    pConn->EnsureSchema();
    return pConn;
}

Connection::~Connection()
{
    for (auto& [sql, pStmt] : m_statements)
        sqlite3_finalize(pStmt);
    sqlite3_close(m_pDb);
}

void Connection::EnsureSchema()
{
    Transaction tx(*this, true);
    for (const char* sql : kSchema)
        Exec(sql);
    {
        Statement s = Prepare("SELECT id FROM keys WHERE parent = 1 AND fold = 'SOFTWARE'");
        s.Step();
        m_llSoftware = s.Int64(0);
    }
    {
        Statement s = Prepare("SELECT id FROM keys WHERE parent = ?1 AND fold = 'CLASSES'");
        s.Bind(1, m_llSoftware);
        s.Step();
        m_llClasses = s.Int64(0);
    }
    m_llHklm = 1;
    m_llHkcu = 2;
    tx.Commit();
}

Statement Connection::Prepare(const char* sql)
{
    auto it = m_statements.find(sql);
    if (it != m_statements.end())
        return Statement(it->second);
    sqlite3_stmt* pStmt = nullptr;
    int rc = sqlite3_prepare_v3(m_pDb, sql, -1, SQLITE_PREPARE_PERSISTENT, &pStmt, nullptr);
    if (rc != SQLITE_OK)
        throw SqlError{rc};
    m_statements.emplace(sql, pStmt);
    return Statement(pStmt);
}

void Connection::Exec(const char* sql)
{
    Check(sqlite3_exec(m_pDb, sql, nullptr, nullptr, nullptr));
}

// ---- Transaction ----

// BEGIN, COMMIT and ROLLBACK run as cached statements: compiling them costs as much as a read.
Transaction::Transaction(Connection& conn, bool fWrite) : m_conn(conn)
{
    m_conn.Prepare(fWrite ? "BEGIN IMMEDIATE" : "BEGIN").Step();
    m_fOpen = true;
}

Transaction::~Transaction()
{
    if (m_fOpen && !m_conn.InAutocommit()) {
        try {
            m_conn.Prepare("ROLLBACK").Step();
        } catch (const SqlError&) {
            // Nothing more can be done; the connection rolls back when it closes.
        }
    }
}

void Transaction::Commit()
{
    m_conn.Prepare("COMMIT").Step();
    m_fOpen = false;
}

// ---- Session ----

std::mutex& RegistryLock()
{
    return TheSession().lock;
}

Connection& CurrentConnection(bool fFollowRoot)
{
    Session& s = TheSession();
    if (s.pConn && !fFollowRoot)
        return *s.pConn;
    // Read here only, by the calling thread: the watcher thread never reads the environment,
    // which a test may be changing.
    const char* env = std::getenv("ORVSIM_ROOT");
    std::string setting = env ? env : "";
    if (s.pConn && setting == s.rootSetting)
        return *s.pConn;
    if (s.fOpened) {
        s.pConn.reset();
        ForgetHandles();
        ForgetNotifications();
    }
    s.fOpened = true;
    s.rootSetting = setting;
    ++s.ullGeneration;
    s.pConn = Connection::Open(pal::MachineRoot() + "/registry.db");
    ResetPredefinedHandles(*s.pConn);
    return *s.pConn;
}

Connection* OpenConnection()
{
    return TheSession().pConn.get();
}

ULONGLONG CurrentGeneration()
{
    return TheSession().ullGeneration;
}

} // namespace pal::detail::registry
