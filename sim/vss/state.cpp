// The coordinator's SQLite state: the registered providers and the injected faults.
#include "state.h"

#include "vsssim.h"

#include "pal/palcontrol.h"
#include "pal/winerror.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <functional>

namespace vsssim::detail {

namespace {

// Tables are named for what they hold; the shadow copies will join them in the same database.
// Ids and texts are kept as their bytes (GUIDs as 16 bytes, names as UTF-16), so that a
// registration reads back exactly as it was made.
const char* const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS providers(seq INTEGER PRIMARY KEY AUTOINCREMENT,"
    " id BLOB NOT NULL UNIQUE, class_id BLOB NOT NULL, name BLOB NOT NULL, type INTEGER NOT NULL,"
    " version BLOB NOT NULL, version_id BLOB NOT NULL)",
    "CREATE TABLE IF NOT EXISTS faults(method TEXT PRIMARY KEY, code INTEGER NOT NULL,"
    " remaining INTEGER NOT NULL)",
};

struct CDbError
{};

void Check(int rc)
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

private:
    sqlite3* m_pDb = nullptr;
};

// The injected code for `method`, consuming one call of its rule; S_OK when there is none.
HRESULT ConsumeFault(CDatabase& db, const char* method)
{
    CStatement s = db.Prepare("SELECT code, remaining FROM faults WHERE method = ?1");
    s.Bind(1, method);
    if (!s.Step())
        return S_OK;
    auto hr = static_cast<HRESULT>(s.Int(0));
    LONGLONG remaining = s.Int(1);
    if (remaining == 1)
        db.Prepare("DELETE FROM faults WHERE method = ?1").Bind(1, method).Step();
    else if (remaining > 1)
        db.Prepare("UPDATE faults SET remaining = remaining - 1 WHERE method = ?1")
            .Bind(1, method)
            .Step();
    return hr;
}

// Runs `operation` in one write transaction, after the fault rule of `method` (if any).
HRESULT WithState(const char* method, const std::function<HRESULT(CDatabase&)>& operation)
{
    try {
        CDatabase db;
        db.Exec("BEGIN IMMEDIATE");
        for (const char* sql : kSchema)
            db.Exec(sql);
        HRESULT hr = method ? ConsumeFault(db, method) : S_OK;
        if (SUCCEEDED(hr))
            hr = operation(db);
        // Operations write only when they succeed, and a consumed fault stays consumed.
        db.Exec("COMMIT");
        return hr;
    } catch (const CDbError&) {
        return VSS_E_UNEXPECTED;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

bool IsSystemProvider(const VSS_ID& id)
{
    return IsEqualGUID(id, kSystemProviderId);
}

} // namespace

HRESULT ReadProviders(const char* method, std::vector<ProviderRecord>* pRecords)
{
    pRecords->clear();
    return WithState(method, [&](CDatabase& db) {
        // The system provider's version id is not published.
        pRecords->push_back({kSystemProviderId, kSystemProviderClassId, kSystemProviderName,
                             VSS_PROV_SYSTEM, kSystemProviderVersion, GUID_NULL});
        CStatement s = db.Prepare("SELECT id, class_id, name, type, version, version_id"
                                  " FROM providers ORDER BY seq");
        while (s.Step())
            pRecords->push_back({s.Guid(0), s.Guid(1), s.Text(2),
                                 static_cast<VSS_PROVIDER_TYPE>(s.Int(3)), s.Text(4), s.Guid(5)});
        return S_OK;
    });
}

HRESULT AddProvider(const char* method, const ProviderRecord& record)
{
    return WithState(method, [&](CDatabase& db) {
        if (IsSystemProvider(record.id))
            return VSS_E_PROVIDER_ALREADY_REGISTERED;
        CStatement s = db.Prepare("INSERT OR IGNORE INTO providers(id, class_id, name, type,"
                                  " version, version_id) VALUES (?1, ?2, ?3, ?4, ?5, ?6)");
        s.Bind(1, record.id).Bind(2, record.classId).Bind(3, record.name);
        s.Bind(4, record.type).Bind(5, record.version).Bind(6, record.versionId);
        s.Step();
        return db.Changes() == 1 ? S_OK : VSS_E_PROVIDER_ALREADY_REGISTERED;
    });
}

HRESULT RemoveProvider(const char* method, const VSS_ID& id)
{
    return WithState(method, [&](CDatabase& db) {
        db.Prepare("DELETE FROM providers WHERE id = ?1").Bind(1, id).Step();
        return db.Changes() == 1 ? S_OK : VSS_E_PROVIDER_NOT_REGISTERED;
    });
}

} // namespace vsssim::detail

namespace vsssim {

HRESULT SetFault(const std::string& method, HRESULT hr, LONG lTimes)
{
    static const char* const kMethods[] = {"RegisterProvider", "UnregisterProvider",
                                           "QueryProviders"};
    if (std::none_of(std::begin(kMethods), std::end(kMethods),
                     [&](const char* p) { return method == p; }) ||
        lTimes == 0 || lTimes < kEveryCall)
        return E_INVALIDARG;
    return detail::WithState(nullptr, [&](detail::CDatabase& db) {
        db.Prepare("INSERT OR REPLACE INTO faults(method, code, remaining) VALUES (?1, ?2, ?3)")
            .Bind(1, method.c_str())
            .Bind(2, static_cast<LONGLONG>(hr))
            .Bind(3, lTimes)
            .Step();
        return S_OK;
    });
}

HRESULT ClearFaults()
{
    return detail::WithState(nullptr, [](detail::CDatabase& db) {
        db.Exec("DELETE FROM faults");
        return S_OK;
    });
}

} // namespace vsssim
