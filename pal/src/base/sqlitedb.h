// The SQLite connection, cached statements and transactions that the registry and the event log
// keep on their databases under the machine root. A failing call throws SqlError; each store
// turns it into the Win32 error its callers expect.
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"

#include <sqlite3.h>

#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace pal::detail {

struct SqlError
{
    int rc;
};

// Throws SqlError unless rc is a success (a row and the end of the rows are successes).
void CheckSql(int rc);

// A cached prepared statement, reset and unbound when this wrapper goes out of scope.
class SqlStatement
{
public:
    explicit SqlStatement(sqlite3_stmt* pStmt) : m_pStmt(pStmt) {}
    SqlStatement(const SqlStatement&) = delete;
    SqlStatement& operator=(const SqlStatement&) = delete;
    ~SqlStatement();

    SqlStatement& Bind(int index, LONGLONG value);
    SqlStatement& Bind(int index, std::string_view text);
    SqlStatement& BindBlob(int index, const void* pData, size_t cbData);
    SqlStatement& BindBlob(int index, const std::vector<BYTE>& bytes)
    {
        return BindBlob(index, bytes.data(), bytes.size());
    }
    SqlStatement& BindNull(int index);
    // True for a row, false when done.
    bool Step();

    LONGLONG Int64(int column) const;
    bool IsNull(int column) const;
    // Valid until the next step.
    std::string_view Text(int column) const;
    std::u16string Text16(int column) const;
    const BYTE* Blob(int column, size_t* pcb) const;
    std::vector<BYTE> Blob(int column) const;

private:
    sqlite3_stmt* m_pStmt;
};

// Finalises a statement prepared for one use.
struct SqlFinalize
{
    void operator()(sqlite3_stmt* pStmt) const { sqlite3_finalize(pStmt); }
};
using SqlOneTimeStatement = std::unique_ptr<sqlite3_stmt, SqlFinalize>;

// One open database of the machine (see pal::OpenMachineDatabase) with its statement cache.
class SqlConnection
{
public:
    explicit SqlConnection(const std::string& path);
    SqlConnection(const SqlConnection&) = delete;
    SqlConnection& operator=(const SqlConnection&) = delete;
    ~SqlConnection();

    // `sql` must be a string literal: statements are cached by its address.
    SqlStatement Prepare(const char* sql);
    // A statement built at run time, not cached.
    SqlOneTimeStatement PrepareOnce(const std::string& sql);
    void Exec(const char* sql);
    // False inside a transaction. A statement that fails fatally may have rolled back already.
    bool InAutocommit() const { return sqlite3_get_autocommit(m_pDb) != 0; }
    // Rows changed by the last INSERT, UPDATE or DELETE.
    int Changes() const { return sqlite3_changes(m_pDb); }

private:
    sqlite3* m_pDb = nullptr;
    std::unordered_map<const char*, sqlite3_stmt*> m_statements;
};

// Rolls back whatever the transaction left open when it did not commit.
class SqlTransaction
{
public:
    // A write transaction takes the database's write lock at once.
    SqlTransaction(SqlConnection& conn, bool fWrite);
    SqlTransaction(const SqlTransaction&) = delete;
    SqlTransaction& operator=(const SqlTransaction&) = delete;
    ~SqlTransaction();
    void Commit();

private:
    SqlConnection& m_conn;
    bool m_fOpen = false;
};

// One database file of the machine root with its schema: the connection is opened on first use
// and opened again when $ORVSIM_ROOT changes (each test has a root of its own). Calls hold
// Lock() while they use Connection().
class MachineStore
{
public:
    // `schema` holds statements that create what is missing, run in one write transaction.
    template <size_t N>
    MachineStore(const char* pszFileName, const char* const (&schema)[N])
        : m_pszFileName(pszFileName), m_pSchema(schema), m_cSchema(N)
    {}
    MachineStore(const MachineStore&) = delete;
    MachineStore& operator=(const MachineStore&) = delete;

    std::mutex& Lock() { return m_lock; }
    // With Lock() held. Throws SqlError when the database cannot be opened.
    SqlConnection& Connection();

    // One API call's transaction under Lock(): BEGIN IMMEDIATE when fWrite, `body(conn)`
    // returning the call's error, a commit only on success. A database error becomes
    // mapError(rc); an allocation, a thread or a file that could not be made,
    // ERROR_NOT_ENOUGH_MEMORY.
    template <class MapError, class Body>
    DWORD Transact(bool fWrite, MapError&& mapError, Body&& body)
    {
        std::lock_guard lock(m_lock);
        try {
            SqlConnection& conn = Connection();
            SqlTransaction tx(conn, fWrite);
            DWORD dwError = body(conn);
            if (dwError == ERROR_SUCCESS)
                tx.Commit();
            return dwError;
        } catch (const SqlError& e) {
            return mapError(e.rc);
        } catch (const std::exception&) {
            return ERROR_NOT_ENOUGH_MEMORY;
        }
    }

private:
    const char* m_pszFileName;
    const char* const* m_pSchema;
    size_t m_cSchema;
    std::mutex m_lock;
    std::string m_rootSetting; // $ORVSIM_ROOT when the connection was opened
    std::unique_ptr<SqlConnection> m_pConn;
};

} // namespace pal::detail
