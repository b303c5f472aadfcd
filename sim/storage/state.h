// The simulated storage's SQLite state: one connection per process to
// <machine root>/storage/storage.db, reopened when $ORVSIM_ROOT changes (each test has a root
// of its own), and one transaction per operation.
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"

#include <sqlite3.h>

#include <functional>
#include <string>
#include <string_view>

namespace storagesim::detail {

// A failure of the state database, thrown inside an operation and returned as TESSERA_E_STATE.
struct CStateError
{
    int rc;
    std::string message;
};

class CStatement
{
public:
    CStatement(sqlite3* pDb, const char* sql);
    CStatement(const CStatement&) = delete;
    CStatement& operator=(const CStatement&) = delete;
    ~CStatement();

    CStatement& Bind(int index, LONGLONG value);
    CStatement& Bind(int index, std::string_view text);
    CStatement& BindNull(int index);
    // True for a row, false when done.
    bool Step();
    // Runs a statement that returns no rows.
    void Run();

    LONGLONG Int(int column) const;
    std::string Text(int column) const;
    bool IsNull(int column) const;

private:
    sqlite3* m_pDb;
    sqlite3_stmt* m_pStmt = nullptr;
};

class CState
{
public:
    explicit CState(sqlite3* pDb) : m_pDb(pDb) {}
    CStatement Prepare(const char* sql) { return CStatement(m_pDb, sql); }
    void Exec(const char* sql);
    LONGLONG LastInsertId() const { return sqlite3_last_insert_rowid(m_pDb); }
    int Changes() const { return sqlite3_changes(m_pDb); }

    std::string Setting(const char* name, const std::string& fallback = {});
    void SetSetting(const char* name, const std::string& value);

private:
    sqlite3* m_pDb;
};

// Runs `operation` in one transaction (write transactions take the database's write lock at
// once, so that a cut and a data write of two processes never interleave) with the process's
// state lock held. The operation's failure HRESULT rolls the transaction back; a database
// failure becomes TESSERA_E_STATE with its message in *pMessage.
HRESULT WithState(bool fWrite, const std::function<HRESULT(CState&)>& operation,
                  std::string* pMessage = nullptr);

// The directory of the LUN and snapshot images, created on first use.
std::string ImageDirectory();

// Fills an empty state from a topology; used by InitializeState and on first open.
HRESULT LoadTopology(CState& state, const std::string& json, const std::string& version,
                     std::string* pMessage);
void ClearState(CState& state);

} // namespace storagesim::detail
