// The common way of opening the SQLite databases under the machine root.
#include "pal/palcontrol.h"

#include <sqlite3.h>

#include <chrono>
#include <thread>

namespace pal {

namespace {

// Long enough that a busy database is a sign of a hung process, not of load.
constexpr int BUSY_TIMEOUT_MS = 30000;

bool IsBusy(int rc)
{
    return (rc & 0xFF) == SQLITE_BUSY || (rc & 0xFF) == SQLITE_LOCKED;
}

} // namespace

int OpenMachineDatabase(const std::string& path, sqlite3** ppDb)
{
    *ppDb = nullptr;
    sqlite3* pDb = nullptr;
    int rc =
        sqlite3_open_v2(path.c_str(), &pDb,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc == SQLITE_OK) {
        sqlite3_busy_timeout(pDb, BUSY_TIMEOUT_MS);
        // Switching to WAL takes an exclusive lock, for which the busy handler is not always
        // consulted: several processes opening a fresh database at once retry here.
        auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(BUSY_TIMEOUT_MS);
        do {
            rc = sqlite3_exec(pDb, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
            if (IsBusy(rc))
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        } while (IsBusy(rc) && std::chrono::steady_clock::now() < deadline);
    }
    if (rc == SQLITE_OK)
        rc = sqlite3_exec(pDb, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) {
        sqlite3_close(pDb);
        return rc;
    }
    *ppDb = pDb;
    return SQLITE_OK;
}

} // namespace pal
