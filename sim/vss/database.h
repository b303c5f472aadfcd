// The coordinator's database: <machine root>/vss.db, opened for each operation (a fresh
// connection always sees the current machine root), with the statement and connection holders
// that the registry of providers and the inventory of shadow copies share.
#pragma once

#include "pal/guiddef.h"
#include "pal/palcontrol.h"
#include "pal/windef.h"

#include <sqlite3.h>

#include <cstring>
#include <functional>
#include <string>

namespace vsssim::detail {

struct CDbError
{};

inline void Check(int rc)
{
    if (rc != SQLITE_OK && rc != SQLITE_ROW && rc != SQLITE_DONE)
        throw CDbError{};
}

class CStatement
{
public:
    CStatement(sqlite3* pDb, const char* sql)
    {
        Check(sqlite3_prepare_v2(pDb, sql, -1, &m_p, nullptr));
    }
    CStatement(const CStatement&) = delete;
    CStatement& operator=(const CStatement&) = delete;
    ~CStatement() { sqlite3_finalize(m_p); }

    CStatement& Bind(int i, LONGLONG value)
    {
        Check(sqlite3_bind_int64(m_p, i, value));
        return *this;
    }
    CStatement& Bind(int i, const char* text)
    {
        Check(sqlite3_bind_text(m_p, i, text, -1, SQLITE_TRANSIENT));
        return *this;
    }
    CStatement& Bind(int i, const void* pv, size_t cb)
    {
        // A zero-length blob of a null pointer would be bound as NULL.
        static const char kEmpty = 0;
        Check(sqlite3_bind_blob(m_p, i, cb ? pv : &kEmpty, static_cast<int>(cb), SQLITE_TRANSIENT));
        return *this;
    }
    CStatement& Bind(int i, const GUID& guid) { return Bind(i, &guid, sizeof(guid)); }
    CStatement& Bind(int i, const std::string& bytes)
    {
        return Bind(i, bytes.data(), bytes.size());
    }
    CStatement& Bind(int i, const std::u16string& text)
    {
        return Bind(i, text.data(), text.size() * sizeof(char16_t));
    }
    bool Step()
    {
        int rc = sqlite3_step(m_p);
        Check(rc);
        return rc == SQLITE_ROW;
    }
    LONGLONG Int(int column) const { return sqlite3_column_int64(m_p, column); }
    GUID Guid(int column) const
    {
        GUID guid{};
        if (sqlite3_column_bytes(m_p, column) == sizeof(guid))
            std::memcpy(&guid, sqlite3_column_blob(m_p, column), sizeof(guid));
        return guid;
    }
    std::string Bytes(int column) const
    {
        const auto* p = static_cast<const char*>(sqlite3_column_blob(m_p, column));
        return p ? std::string(p, static_cast<size_t>(sqlite3_column_bytes(m_p, column)))
                 : std::string();
    }
    std::u16string Text(int column) const
    {
        const auto* p = static_cast<const char16_t*>(sqlite3_column_blob(m_p, column));
        size_t cch = static_cast<size_t>(sqlite3_column_bytes(m_p, column)) / sizeof(char16_t);
        return p ? std::u16string(p, cch) : std::u16string();
    }

private:
    sqlite3_stmt* m_p = nullptr;
};

class CDatabase
{
public:
    CDatabase()
    {
        if (pal::OpenMachineDatabase(pal::MachineRoot() + "/vss.db", &m_pDb) != SQLITE_OK)
            throw CDbError{};
    }
    CDatabase(const CDatabase&) = delete;
    CDatabase& operator=(const CDatabase&) = delete;
    ~CDatabase() { sqlite3_close(m_pDb); }

    void Exec(const char* sql) { Check(sqlite3_exec(m_pDb, sql, nullptr, nullptr, nullptr)); }
    CStatement Prepare(const char* sql) { return CStatement(m_pDb, sql); }
    int Changes() const { return sqlite3_changes(m_pDb); }
    LONGLONG LastInsertId() const { return sqlite3_last_insert_rowid(m_pDb); }

private:
    sqlite3* m_pDb = nullptr;
};

// Consumes one call of the rule named `method`, if there is one: true with its code.
bool ConsumeFault(CDatabase& db, const char* method, LONGLONG* pllCode);

// Runs `operation` in one write transaction, after the fault rule of `method` (if any; null
// for none). A database failure is VSS_E_UNEXPECTED, the coordinator's code for an unexpected
// error; an exhausted heap E_OUTOFMEMORY.
HRESULT WithState(const char* method, const std::function<HRESULT(CDatabase&)>& operation);

} // namespace vsssim::detail
