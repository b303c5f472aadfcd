// The service database. Every process of the machine keeps one connection, serialised by one
// lock, and every call is one transaction, so SQLite's file locks order the changes of all
// processes and the busy timeout makes a writer wait for another's commit rather than fail.
#include "pal/src/service/store.h"

#include "pal/src/base/internal.h"
#include "pal/src/registry/names.h"
#include "pal/sysinfoapi.h"

#include <chrono>
#include <cstdlib>
#include <memory>

namespace pal::detail::service {

namespace {

const char* const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS services("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " name TEXT NOT NULL, fold TEXT NOT NULL,"
    " display TEXT NOT NULL, display_fold TEXT NOT NULL,"
    " type INTEGER NOT NULL, start_type INTEGER NOT NULL, error_control INTEGER NOT NULL,"
    " image_path TEXT NOT NULL, load_order_group TEXT NOT NULL,"
    " dependencies BLOB NOT NULL, account TEXT NOT NULL, password TEXT NOT NULL,"
    " description TEXT,"
    " marked INTEGER NOT NULL DEFAULT 0, removed INTEGER NOT NULL DEFAULT 0,"
    " state INTEGER NOT NULL, controls INTEGER NOT NULL, win32_exit INTEGER NOT NULL,"
    " specific_exit INTEGER NOT NULL, check_point INTEGER NOT NULL, wait_hint INTEGER NOT NULL,"
    " pid INTEGER NOT NULL)",
    // Names are unique among the services not yet removed; a removed row keeps its names for
    // the handles still open to it.
    "CREATE UNIQUE INDEX IF NOT EXISTS services_fold ON services(fold) WHERE removed = 0",
    "CREATE INDEX IF NOT EXISTS services_display ON services(display_fold) WHERE removed = 0",
    "CREATE TABLE IF NOT EXISTS reports("
    " seq INTEGER PRIMARY KEY AUTOINCREMENT,"
    " service INTEGER NOT NULL, pid INTEGER NOT NULL,"
    " state INTEGER NOT NULL, controls INTEGER NOT NULL, win32_exit INTEGER NOT NULL,"
    " specific_exit INTEGER NOT NULL, check_point INTEGER NOT NULL, wait_hint INTEGER NOT NULL,"
    " tick INTEGER NOT NULL, time INTEGER NOT NULL, by_manager INTEGER NOT NULL)",
    "CREATE INDEX IF NOT EXISTS reports_service ON reports(service, seq)",
    "PRAGMA user_version = 1",
};

// Dependencies are kept as their items, each in UTF-8 followed by a NUL.
std::vector<BYTE> PackList(const std::vector<std::u16string>& items)
{
    std::vector<BYTE> bytes;
    for (const std::u16string& item : items) {
        std::string narrow = ToUtf8(item);
        bytes.insert(bytes.end(), narrow.begin(), narrow.end());
        bytes.push_back(0);
    }
    return bytes;
}

std::vector<std::u16string> UnpackList(const std::vector<BYTE>& bytes)
{
    std::vector<std::u16string> items;
    std::string current;
    for (BYTE b : bytes) {
        if (b == 0) {
            items.push_back(ToUtf16(current));
            current.clear();
        } else {
            current.push_back(static_cast<char>(b));
        }
    }
    return items;
}

ULONGLONG FileTimeNow()
{
    constexpr ULONGLONG kUnixEpochAsFileTime = 116444736000000000ull;
    auto since1970 = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return kUnixEpochAsFileTime + static_cast<ULONGLONG>(since1970.count() / 100);
}

std::optional<LONGLONG> FindId(SqlStatement& select)
{
    if (!select.Step())
        return std::nullopt;
    return select.Int64(0);
}

} // namespace

MachineStore& Store()
{
    static MachineStore store("services.db", kSchema);
    return store;
}

DWORD Win32FromSqlite(int rc)
{
    switch (rc & 0xFF) {
    case SQLITE_OK:
    case SQLITE_DONE:
    case SQLITE_ROW:
        return ERROR_SUCCESS;
    case SQLITE_NOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case SQLITE_FULL:
        return ERROR_DISK_FULL;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return ERROR_BADDB;
    case SQLITE_PERM:
    case SQLITE_READONLY:
    case SQLITE_AUTH:
    case SQLITE_CANTOPEN:
        return ERROR_ACCESS_DENIED;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        // Another process held the database for the whole busy timeout.
        return ERROR_SERVICE_DATABASE_LOCKED;
    default:
        return ERROR_GEN_FAILURE;
    }
}

std::string FoldedName(std::u16string_view name)
{
    return ToUtf8(registry::FoldName(name));
}

std::optional<LONGLONG> FindServiceByName(SqlConnection& conn, std::u16string_view name)
{
    SqlStatement select = conn.Prepare("SELECT id FROM services WHERE fold = ?1 AND removed = 0");
    select.Bind(1, FoldedName(name));
    return FindId(select);
}

std::optional<LONGLONG> FindServiceByDisplayName(SqlConnection& conn, std::u16string_view display)
{
    SqlStatement select =
        conn.Prepare("SELECT id FROM services WHERE display_fold = ?1 AND removed = 0");
    select.Bind(1, FoldedName(display));
    return FindId(select);
}

std::optional<LONGLONG> FindLastServiceByName(SqlConnection& conn, std::u16string_view name)
{
    SqlStatement select =
        conn.Prepare("SELECT id FROM services WHERE fold = ?1 ORDER BY removed, id DESC LIMIT 1");
    select.Bind(1, FoldedName(name));
    return FindId(select);
}

bool LoadService(SqlConnection& conn, LONGLONG llId, ServiceRecord* pRecord)
{
    SqlStatement select = conn.Prepare(
        "SELECT name, display, type, start_type, error_control, image_path, load_order_group,"
        " dependencies, account, password, description, marked, removed, state, controls,"
        " win32_exit, specific_exit, check_point, wait_hint, pid FROM services WHERE id = ?1");
    select.Bind(1, llId);
    if (!select.Step())
        return false;
    ServiceRecord& r = *pRecord;
    r.llId = llId;
    r.name = select.Text16(0);
    r.display = select.Text16(1);
    r.dwType = static_cast<DWORD>(select.Int64(2));
    r.dwStartType = static_cast<DWORD>(select.Int64(3));
    r.dwErrorControl = static_cast<DWORD>(select.Int64(4));
    r.imagePath = select.Text16(5);
    r.loadOrderGroup = select.Text16(6);
    r.dependencies = UnpackList(select.Blob(7));
    r.account = select.Text16(8);
    r.password = select.Text16(9);
    r.description = select.IsNull(10) ? std::nullopt : std::optional(select.Text16(10));
    r.fMarked = select.Int64(11) != 0;
    r.fRemoved = select.Int64(12) != 0;
    r.status.dwServiceType = r.dwType;
    r.status.dwCurrentState = static_cast<DWORD>(select.Int64(13));
    r.status.dwControlsAccepted = static_cast<DWORD>(select.Int64(14));
    r.status.dwWin32ExitCode = static_cast<DWORD>(select.Int64(15));
    r.status.dwServiceSpecificExitCode = static_cast<DWORD>(select.Int64(16));
    r.status.dwCheckPoint = static_cast<DWORD>(select.Int64(17));
    r.status.dwWaitHint = static_cast<DWORD>(select.Int64(18));
    r.dwProcessId = static_cast<DWORD>(select.Int64(19));
    return true;
}

void InsertService(SqlConnection& conn, ServiceRecord* pRecord)
{
    const ServiceRecord& r = *pRecord;
    SqlStatement insert = conn.Prepare(
        "INSERT INTO services(name, fold, display, display_fold, type, start_type, error_control,"
        " image_path, load_order_group, dependencies, account, password, description, state,"
        " controls, win32_exit, specific_exit, check_point, wait_hint, pid)"
        " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17,"
        " ?18, ?19, ?20)");
    insert.Bind(1, ToUtf8(r.name))
        .Bind(2, FoldedName(r.name))
        .Bind(3, ToUtf8(r.display))
        .Bind(4, FoldedName(r.display))
        .Bind(5, r.dwType)
        .Bind(6, r.dwStartType)
        .Bind(7, r.dwErrorControl)
        .Bind(8, ToUtf8(r.imagePath))
        .Bind(9, ToUtf8(r.loadOrderGroup))
        .BindBlob(10, PackList(r.dependencies))
        .Bind(11, ToUtf8(r.account))
        .Bind(12, ToUtf8(r.password))
        .Bind(14, r.status.dwCurrentState)
        .Bind(15, r.status.dwControlsAccepted)
        .Bind(16, r.status.dwWin32ExitCode)
        .Bind(17, r.status.dwServiceSpecificExitCode)
        .Bind(18, r.status.dwCheckPoint)
        .Bind(19, r.status.dwWaitHint)
        .Bind(20, r.dwProcessId);
    if (r.description)
        insert.Bind(13, ToUtf8(*r.description));
    else
        insert.BindNull(13);
    insert.Step();
    SqlStatement last = conn.Prepare("SELECT last_insert_rowid()");
    last.Step();
    pRecord->llId = last.Int64(0);
}

void StoreDescription(SqlConnection& conn, LONGLONG llId,
                      const std::optional<std::u16string>& description)
{
    SqlStatement update = conn.Prepare("UPDATE services SET description = ?2 WHERE id = ?1");
    update.Bind(1, llId);
    if (description)
        update.Bind(2, ToUtf8(*description));
    else
        update.BindNull(2);
    update.Step();
}

void StoreMarked(SqlConnection& conn, LONGLONG llId)
{
    SqlStatement update = conn.Prepare("UPDATE services SET marked = 1 WHERE id = ?1");
    update.Bind(1, llId).Step();
}

void StoreRemoved(SqlConnection& conn, LONGLONG llId)
{
    SqlStatement update = conn.Prepare("UPDATE services SET removed = 1 WHERE id = ?1");
    update.Bind(1, llId).Step();
}

void RecordStatus(SqlConnection& conn, LONGLONG llId, const SERVICE_STATUS& status,
                  DWORD dwProcessId, bool fByManager)
{
    {
        SqlStatement update = conn.Prepare(
            "UPDATE services SET state = ?2, controls = ?3, win32_exit = ?4, specific_exit = ?5,"
            " check_point = ?6, wait_hint = ?7, pid = ?8 WHERE id = ?1");
        update.Bind(1, llId)
            .Bind(2, status.dwCurrentState)
            .Bind(3, status.dwControlsAccepted)
            .Bind(4, status.dwWin32ExitCode)
            .Bind(5, status.dwServiceSpecificExitCode)
            .Bind(6, status.dwCheckPoint)
            .Bind(7, status.dwWaitHint)
            .Bind(8, status.dwCurrentState == SERVICE_STOPPED ? 0 : dwProcessId);
        update.Step();
    }
    SqlStatement insert =
        conn.Prepare("INSERT INTO reports(service, pid, state, controls, win32_exit, specific_exit,"
                     " check_point, wait_hint, tick, time, by_manager)"
                     " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)");
    insert.Bind(1, llId)
        .Bind(2, dwProcessId)
        .Bind(3, status.dwCurrentState)
        .Bind(4, status.dwControlsAccepted)
        .Bind(5, status.dwWin32ExitCode)
        .Bind(6, status.dwServiceSpecificExitCode)
        .Bind(7, status.dwCheckPoint)
        .Bind(8, status.dwWaitHint)
        .Bind(9, GetTickCount())
        .Bind(10, static_cast<LONGLONG>(FileTimeNow()))
        .Bind(11, fByManager ? 1 : 0);
    insert.Step();
}

} // namespace pal::detail::service
