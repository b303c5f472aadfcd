// The SQLite connection of the registry and the frame of a call.
#include "pal/src/registry/store.h"

#include "pal/src/registry/handles.h"
#include "pal/src/registry/notify.h"

#include "pal/src/base/internal.h"

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

// ---- Connection ----

std::unique_ptr<Connection> Connection::Open(const std::string& path)
{
    std::unique_ptr<Connection> pConn(new Connection(path));
    pConn->Exec("PRAGMA foreign_keys=ON");
    pConn->EnsureSchema();
    return pConn;
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
