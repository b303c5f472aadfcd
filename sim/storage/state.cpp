// The SQLite connection of the simulated storage and the frame of an operation.
#include "state.h"

#include "simcodes.h"
#include "storagesim.h"

#include "pal/palcontrol.h"

#include <cstdlib>
#include <filesystem>
#include <mutex>

namespace storagesim::detail {

namespace {

const char* const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS settings(name TEXT PRIMARY KEY, value TEXT NOT NULL)",
    "CREATE TABLE IF NOT EXISTS filers("
    " id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE COLLATE NOCASE,"
    " unlocked_clone INTEGER NOT NULL, backup_snapshots INTEGER NOT NULL)",
    "CREATE TABLE IF NOT EXISTS volumes("
    " id INTEGER PRIMARY KEY, filer INTEGER NOT NULL REFERENCES filers(id),"
    " name TEXT NOT NULL, UNIQUE(filer, name))",
    // A LUN with a snapshot is a target LUN exposing it.
    "CREATE TABLE IF NOT EXISTS luns("
    " id INTEGER PRIMARY KEY, filer INTEGER NOT NULL REFERENCES filers(id),"
    " path TEXT NOT NULL, serial TEXT NOT NULL, vendor TEXT NOT NULL, product TEXT NOT NULL,"
    " revision TEXT NOT NULL, size INTEGER NOT NULL, snapshot INTEGER,"
    " writable INTEGER NOT NULL DEFAULT 1, UNIQUE(filer, path))",
    "CREATE TABLE IF NOT EXISTS snapshots("
    " id INTEGER PRIMARY KEY, lun INTEGER NOT NULL REFERENCES luns(id), name TEXT NOT NULL,"
    " kind INTEGER NOT NULL, target_path TEXT, target_serial TEXT, target_writable INTEGER,"
    " UNIQUE(lun, name))",
    // A disk without a LUN belongs to another vendor's array: the service does not manage it.
    "CREATE TABLE IF NOT EXISTS disks("
    " id INTEGER PRIMARY KEY, lun INTEGER UNIQUE, vendor TEXT NOT NULL, product TEXT NOT NULL,"
    " revision TEXT NOT NULL, serial TEXT NOT NULL, size INTEGER NOT NULL,"
    " transport TEXT NOT NULL, port INTEGER NOT NULL, bus INTEGER NOT NULL,"
    " target INTEGER NOT NULL, lunno INTEGER NOT NULL, mount_points TEXT NOT NULL,"
    " readonly INTEGER NOT NULL, shared INTEGER NOT NULL)",
    "CREATE TABLE IF NOT EXISTS datasets(tag TEXT NOT NULL, drive TEXT NOT NULL,"
    " PRIMARY KEY(tag, drive))",
    "CREATE TABLE IF NOT EXISTS faults(method TEXT NOT NULL, kind TEXT NOT NULL,"
    " code INTEGER NOT NULL, delay_ms INTEGER NOT NULL, remaining INTEGER NOT NULL,"
    " PRIMARY KEY(method, kind))",
};

struct CSession
{
    std::mutex m_lock;
    std::string m_rootSetting;
    bool m_fOpened = false;
    sqlite3* m_pDb = nullptr;
};

CSession& Session()
{
    static CSession* pSession = new CSession(); // never destroyed: workers may outlive exit
    return *pSession;
}

void Check(sqlite3* pDb, int rc)
{
    if (rc != SQLITE_OK && rc != SQLITE_ROW && rc != SQLITE_DONE)
        throw CStateError{rc, sqlite3_errmsg(pDb)};
}

sqlite3* Open(const std::string& path)
{
    sqlite3* pDb = nullptr;
    int rc = pal::OpenMachineDatabase(path, &pDb);
    if (rc != SQLITE_OK)
        throw CStateError{rc, sqlite3_errstr(rc)};
    try {
        Check(pDb, sqlite3_exec(pDb, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr));
        for (const char* sql : kSchema)
            Check(pDb, sqlite3_exec(pDb, sql, nullptr, nullptr, nullptr));
        CState state(pDb);
        // A machine seen for the first time gets the default topology.
        if (state.Setting("initialized").empty()) {
            std::string message;
            if (FAILED(LoadTopology(state, DefaultTopology(), "", &message)))
                throw CStateError{SQLITE_ERROR, message};
        }
        Check(pDb, sqlite3_exec(pDb, "COMMIT", nullptr, nullptr, nullptr));
    } catch (const CStateError&) {
        sqlite3_close(pDb);
        throw;
    }
    return pDb;
}

// With the session lock held: the connection for the current machine root.
sqlite3* CurrentDb()
{
    CSession& s = Session();
    const char* env = std::getenv("ORVSIM_ROOT");
    std::string setting = env ? env : "";
    if (s.m_pDb && setting == s.m_rootSetting)
        return s.m_pDb;
    if (s.m_pDb) {
        sqlite3_close(s.m_pDb);
        s.m_pDb = nullptr;
    }
    std::filesystem::create_directories(std::filesystem::path(pal::MachineRoot()) / "storage");
    s.m_pDb = Open(pal::MachineRoot() + "/storage/storage.db");
    s.m_rootSetting = setting;
    return s.m_pDb;
}

} // namespace

CStatement::CStatement(sqlite3* pDb, const char* sql) : m_pDb(pDb)
{
    Check(pDb, sqlite3_prepare_v2(pDb, sql, -1, &m_pStmt, nullptr));
}

CStatement::~CStatement()
{
    sqlite3_finalize(m_pStmt);
}

CStatement& CStatement::Bind(int index, LONGLONG value)
{
    Check(m_pDb, sqlite3_bind_int64(m_pStmt, index, value));
    return *this;
}

CStatement& CStatement::Bind(int index, std::string_view text)
{
    Check(m_pDb, sqlite3_bind_text(m_pStmt, index, text.data(), static_cast<int>(text.size()),
                                   SQLITE_TRANSIENT));
    return *this;
}

CStatement& CStatement::BindNull(int index)
{
    Check(m_pDb, sqlite3_bind_null(m_pStmt, index));
    return *this;
}

bool CStatement::Step()
{
    int rc = sqlite3_step(m_pStmt);
    if (rc == SQLITE_ROW)
        return true;
    if (rc == SQLITE_DONE)
        return false;
    throw CStateError{rc, sqlite3_errmsg(m_pDb)};
}

void CStatement::Run()
{
    while (Step()) {
    }
}

LONGLONG CStatement::Int(int column) const
{
    return sqlite3_column_int64(m_pStmt, column);
}

std::string CStatement::Text(int column) const
{
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(m_pStmt, column));
    return p ? std::string(p, static_cast<size_t>(sqlite3_column_bytes(m_pStmt, column)))
             : std::string();
}

bool CStatement::IsNull(int column) const
{
    return sqlite3_column_type(m_pStmt, column) == SQLITE_NULL;
}

void CState::Exec(const char* sql)
{
    Check(m_pDb, sqlite3_exec(m_pDb, sql, nullptr, nullptr, nullptr));
}

std::string CState::Setting(const char* name, const std::string& fallback)
{
    CStatement s = Prepare("SELECT value FROM settings WHERE name = ?1");
    s.Bind(1, name);
    return s.Step() ? s.Text(0) : fallback;
}

void CState::SetSetting(const char* name, const std::string& value)
{
    Prepare("INSERT OR REPLACE INTO settings(name, value) VALUES (?1, ?2)")
        .Bind(1, name)
        .Bind(2, value)
        .Run();
}

HRESULT WithState(bool fWrite, const std::function<HRESULT(CState&)>& operation,
                  std::string* pMessage)
{
    CSession& s = Session();
    std::lock_guard lock(s.m_lock);
    sqlite3* pDb = nullptr;
    try {
        pDb = CurrentDb();
        Check(pDb,
              sqlite3_exec(pDb, fWrite ? "BEGIN IMMEDIATE" : "BEGIN", nullptr, nullptr, nullptr));
        CState state(pDb);
        HRESULT hr = operation(state);
        Check(pDb,
              sqlite3_exec(pDb, SUCCEEDED(hr) ? "COMMIT" : "ROLLBACK", nullptr, nullptr, nullptr));
        return hr;
    } catch (const CStateError& e) {
        if (pDb && !sqlite3_get_autocommit(pDb))
            sqlite3_exec(pDb, "ROLLBACK", nullptr, nullptr, nullptr);
        if (pMessage)
            *pMessage = "storage state: " + e.message;
        return TESSERA_E_STATE;
    } catch (const std::exception& e) {
        // File system failures of the images, and an exhausted allocator.
        if (pDb && !sqlite3_get_autocommit(pDb))
            sqlite3_exec(pDb, "ROLLBACK", nullptr, nullptr, nullptr);
        if (pMessage)
            *pMessage = std::string("storage state: ") + e.what();
        return TESSERA_E_STATE;
    }
}

std::string ImageDirectory()
{
    std::filesystem::path dir = std::filesystem::path(pal::MachineRoot()) / "storage" / "images";
    std::filesystem::create_directories(dir);
    return dir.string();
}

void ClearState(CState& state)
{
    for (const char* table : {"DELETE FROM datasets", "DELETE FROM disks", "DELETE FROM snapshots",
                              "DELETE FROM luns", "DELETE FROM volumes", "DELETE FROM filers",
                              "DELETE FROM faults", "DELETE FROM settings"})
        state.Exec(table);
    std::error_code ec;
    std::filesystem::path dir = std::filesystem::path(pal::MachineRoot()) / "storage" / "images";
    std::filesystem::remove_all(dir, ec);
}

} // namespace storagesim::detail
