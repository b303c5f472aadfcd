// The registry's SQLite store: one connection per process to <machine root>/registry.db, the
// statements run on it and the transactions that group them. The schema is described in
// docs/ARCHITECTURE.md ("Registry").
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"

#include <sqlite3.h>

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace pal::detail::registry {

// Thrown by a failing statement inside a call; the call returns it as a Win32 error.
struct SqlError
{
    int rc;
};
LONG Win32FromSqlite(int rc);

// A cached prepared statement, reset and unbound when this wrapper goes out of scope.
class Statement
{
public:
    explicit Statement(sqlite3_stmt* pStmt) : m_pStmt(pStmt) {}
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement();

    Statement& Bind(int index, LONGLONG value);
    Statement& Bind(int index, std::string_view text);
    Statement& BindBlob(int index, const void* pData, size_t cbData);
    // True for a row, false when done.
    bool Step();

    LONGLONG Int64(int column) const;
    bool IsNull(int column) const;
    std::u16string Text16(int column) const;
    std::string_view Text(int column) const;
    const BYTE* Blob(int column, size_t* pcb) const;

private:
    sqlite3_stmt* m_pStmt;
};

// One open database, its schema ensured.
class Connection
{
public:
    static std::unique_ptr<Connection> Open(const std::string& path);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    // `sql` must be a string literal: statements are cached by its address.
    Statement Prepare(const char* sql);
    void Exec(const char* sql);
    // False inside a transaction. A statement that fails fatally may have rolled back already.
    bool InAutocommit() const { return sqlite3_get_autocommit(m_pDb) != 0; }
    // Rows changed by the last INSERT, UPDATE or DELETE.
    int Changes() const { return sqlite3_changes(m_pDb); }

    LONGLONG HklmId() const { return m_llHklm; }
    LONGLONG HkcuId() const { return m_llHkcu; }
    LONGLONG ClassesId() const { return m_llClasses; }
    LONGLONG SoftwareId() const { return m_llSoftware; }

private:
    explicit Connection(sqlite3* pDb) : m_pDb(pDb) {}
    void EnsureSchema();

    sqlite3* m_pDb;
    std::unordered_map<const char*, sqlite3_stmt*> m_statements;
    LONGLONG m_llHklm = 0;
    LONGLONG m_llHkcu = 0;
    LONGLONG m_llSoftware = 0;
    LONGLONG m_llClasses = 0;
};

// ---- The process's registry session ----
// Guards the connection, the handle table and the session generation.
std::mutex& RegistryLock();
// With RegistryLock() held: the connection for the machine root. With fFollowRoot, a change of
// $ORVSIM_ROOT since the last call closes the old database and forgets every handle and
// notification of it (each test has a root of its own). Throws SqlError.
Connection& CurrentConnection(bool fFollowRoot);
// With RegistryLock() held: the connection if one is open, without looking at $ORVSIM_ROOT.
Connection* OpenConnection();
// Counts connections opened, so that a notification armed on an old root is recognised.
ULONGLONG CurrentGeneration();

// ---- Changes, for notification ----
enum ChangeKind : DWORD
{
    kChangeName = 0x1,      // a subkey of the key was added or deleted
    kChangeLastSet = 0x4,   // a value of the key was set or deleted
    kChangeDeleted = 0x100, // the key itself (and its subtree) was deleted
};
struct Change
{
    LONGLONG llSeq;
    std::string path; // folded full path, UTF-8
    DWORD dwKind;
};
using ChangeList = std::vector<Change>;
// Signals this process's notifications matched by changes just committed (notify module).
void PublishChanges(const ChangeList& changes);

class Transaction
{
public:
    Transaction(Connection& conn, bool fWrite);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();
    void Commit();

private:
    Connection& m_conn;
    bool m_fOpen = false;
};

} // namespace pal::detail::registry
