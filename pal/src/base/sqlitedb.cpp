// The SQLite wrappers shared by the registry and the event log.
#include "pal/src/base/sqlitedb.h"

#include "pal/src/base/internal.h"

#include <cstdlib>

namespace pal::detail {

void CheckSql(int rc)
{
    if (rc != SQLITE_OK && rc != SQLITE_ROW && rc != SQLITE_DONE)
        throw SqlError{rc};
}

// ---- SqlStatement ----

SqlStatement::~SqlStatement()
{
    sqlite3_reset(m_pStmt);
    sqlite3_clear_bindings(m_pStmt);
}

SqlStatement& SqlStatement::Bind(int index, LONGLONG value)
{
    CheckSql(sqlite3_bind_int64(m_pStmt, index, value));
    return *this;
}

SqlStatement& SqlStatement::Bind(int index, std::string_view text)
{
    CheckSql(sqlite3_bind_text(m_pStmt, index, text.data(), static_cast<int>(text.size()),
                               SQLITE_TRANSIENT));
    return *this;
}

SqlStatement& SqlStatement::BindBlob(int index, const void* pData, size_t cbData)
{
    // A zero-length blob must still be a blob, not NULL.
    static const BYTE kEmpty = 0;
    CheckSql(
        sqlite3_bind_blob64(m_pStmt, index, cbData ? pData : &kEmpty, cbData, SQLITE_TRANSIENT));
    return *this;
}

SqlStatement& SqlStatement::BindNull(int index)
{
    CheckSql(sqlite3_bind_null(m_pStmt, index));
    return *this;
}

bool SqlStatement::Step()
{
    int rc = sqlite3_step(m_pStmt);
    if (rc == SQLITE_ROW)
        return true;
    if (rc == SQLITE_DONE)
        return false;
    throw SqlError{rc};
}

LONGLONG SqlStatement::Int64(int column) const
{
    return sqlite3_column_int64(m_pStmt, column);
}

bool SqlStatement::IsNull(int column) const
{
    return sqlite3_column_type(m_pStmt, column) == SQLITE_NULL;
}

std::string_view SqlStatement::Text(int column) const
{
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(m_pStmt, column));
    int cb = sqlite3_column_bytes(m_pStmt, column);
    return p ? std::string_view(p, static_cast<size_t>(cb)) : std::string_view();
}

std::u16string SqlStatement::Text16(int column) const
{
    return ToUtf16(Text(column));
}

const BYTE* SqlStatement::Blob(int column, size_t* pcb) const
{
    const auto* p = static_cast<const BYTE*>(sqlite3_column_blob(m_pStmt, column));
    *pcb = static_cast<size_t>(sqlite3_column_bytes(m_pStmt, column));
    return p;
}

std::vector<BYTE> SqlStatement::Blob(int column) const
{
    size_t cb = 0;
    const BYTE* p = Blob(column, &cb);
    return p ? std::vector<BYTE>(p, p + cb) : std::vector<BYTE>();
}

// ---- SqlConnection ----

SqlConnection::SqlConnection(const std::string& path)
{
    int rc = pal::OpenMachineDatabase(path, &m_pDb);
    if (rc != SQLITE_OK)
        throw SqlError{rc};
}

SqlConnection::~SqlConnection()
{
    for (auto& [sql, pStmt] : m_statements)
        sqlite3_finalize(pStmt);
    sqlite3_close(m_pDb);
}

SqlStatement SqlConnection::Prepare(const char* sql)
{
    auto it = m_statements.find(sql);
    if (it != m_statements.end())
        return SqlStatement(it->second);
    sqlite3_stmt* pStmt = nullptr;
    CheckSql(sqlite3_prepare_v3(m_pDb, sql, -1, SQLITE_PREPARE_PERSISTENT, &pStmt, nullptr));
    m_statements.emplace(sql, pStmt);
    return SqlStatement(pStmt);
}

SqlOneTimeStatement SqlConnection::PrepareOnce(const std::string& sql)
{
    sqlite3_stmt* pStmt = nullptr;
    CheckSql(sqlite3_prepare_v2(m_pDb, sql.c_str(), -1, &pStmt, nullptr));
    return SqlOneTimeStatement(pStmt);
}

void SqlConnection::Exec(const char* sql)
{
    CheckSql(sqlite3_exec(m_pDb, sql, nullptr, nullptr, nullptr));
}

// ---- SqlTransaction ----

// BEGIN, COMMIT and ROLLBACK run as cached statements: compiling them costs as much as a read.
SqlTransaction::SqlTransaction(SqlConnection& conn, bool fWrite) : m_conn(conn)
{
    m_conn.Prepare(fWrite ? "BEGIN IMMEDIATE" : "BEGIN").Step();
    m_fOpen = true;
}

SqlTransaction::~SqlTransaction()
{
    if (m_fOpen && !m_conn.InAutocommit()) {
        try {
            m_conn.Prepare("ROLLBACK").Step();
        } catch (const SqlError&) {
            // Nothing more can be done; the connection rolls back when it closes.
        }
    }
}

void SqlTransaction::Commit()
{
    m_conn.Prepare("COMMIT").Step();
    m_fOpen = false;
}

SqlConnection& MachineStore::Connection()
{
    const char* env = std::getenv("ORVSIM_ROOT");
    std::string setting = env ? env : "";
    if (m_pConn && setting == m_rootSetting)
        return *m_pConn;
    m_pConn.reset();
    auto pConn = std::make_unique<SqlConnection>(pal::MachineRoot() + "/" + m_pszFileName);
    SqlTransaction tx(*pConn, true);
    for (size_t i = 0; i < m_cSchema; ++i)
        pConn->Exec(m_pSchema[i]);
    tx.Commit();
    m_pConn = std::move(pConn);
    m_rootSetting = setting;
    return *m_pConn;
}

} // namespace pal::detail
