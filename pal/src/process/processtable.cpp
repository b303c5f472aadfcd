// The machine's process table. Every process of the machine writes its own row (one write
// transaction at its start, one at its end); OpenProcess and the tools read them. The newest
// 4096 rows are kept.
#include "pal/src/process/processtable.h"

#include "pal/libloaderapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/base/internal.h"
#include "pal/src/base/sqlitedb.h"
#include "pal/src/eventlog/store.h"
#include "pal/winerror.h"

#include <atomic>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace pal::detail::process {

namespace {

constexpr LONGLONG kRowsKept = 4096;

const char* const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS processes("
    " seq INTEGER PRIMARY KEY AUTOINCREMENT,"
    " pid INTEGER NOT NULL,"
    " start_id INTEGER NOT NULL,"
    " image TEXT NOT NULL,"
    " command_line TEXT NOT NULL,"
    " start_time INTEGER NOT NULL,"
    " exit_code INTEGER,"
    " end_time INTEGER)",
    "CREATE INDEX IF NOT EXISTS processes_pid ON processes(pid, start_id)",
    "PRAGMA user_version = 1",
};

MachineStore& Store()
{
    static MachineStore store("processes.db", kSchema);
    return store;
}

// The row RecordStart wrote for this process; 0 before.
std::atomic<LONGLONG> g_llOwnRow{0};

// One transaction on the table; `body(conn)` returns the call's error.
template <class Body>
DWORD RunOnTable(bool fWrite, Body&& body)
{
    auto mapError = [fWrite](int rc) -> DWORD {
        if ((rc & 0xFF) == SQLITE_NOMEM)
            return ERROR_NOT_ENOUGH_MEMORY;
        if ((rc & 0xFF) == SQLITE_CANTOPEN || (rc & 0xFF) == SQLITE_READONLY)
            return ERROR_ACCESS_DENIED;
        return fWrite ? ERROR_WRITE_FAULT : ERROR_READ_FAULT;
    };
    return Store().Transact(fWrite, mapError, std::forward<Body>(body));
}

ProcessRecord RowToRecord(const SqlStatement& row)
{
    ProcessRecord r;
    r.dwProcessId = static_cast<DWORD>(row.Int64(0));
    r.ullStartIdentity = static_cast<ULONGLONG>(row.Int64(1));
    r.imagePath = row.Text16(2);
    r.commandLine = row.Text16(3);
    r.ullStartTime = static_cast<ULONGLONG>(row.Int64(4));
    r.fExitRecorded = !row.IsNull(5);
    r.dwExitCode = r.fExitRecorded ? static_cast<DWORD>(row.Int64(5)) : 0;
    r.ullEndTime = row.IsNull(6) ? 0 : static_cast<ULONGLONG>(row.Int64(6));
    return r;
}

} // namespace

std::optional<HostProcess> ReadHostProcess(DWORD dwProcessId)
{
    if (dwProcessId == 0 || dwProcessId > 0x7FFFFFFF)
        return std::nullopt;
    std::ifstream file("/proc/" + std::to_string(dwProcessId) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // "pid (comm) state ppid ...": the name may hold anything, so fields count from its last ')'.
    size_t close = text.rfind(')');
    if (close == std::string::npos)
        return std::nullopt;
    std::istringstream fields(text.substr(close + 1));
    std::string state;
    fields >> state;
    // The start time is field 22; the state was field 3.
    std::string skipped;
    for (int i = 4; i < 22; ++i)
        fields >> skipped;
    HostProcess process;
    if (!(fields >> process.ullStartIdentity))
        return std::nullopt;
    process.fEnded = state == "Z" || state == "X";
    return process;
}

DWORD RecordStart()
{
    std::optional<HostProcess> self = ReadHostProcess(GetCurrentProcessId());
    std::vector<WCHAR> image(MAX_PATH);
    DWORD cchImage = 0;
    while ((cchImage = GetModuleFileNameW(nullptr, image.data(), DWORD(image.size()))) ==
           image.size())
        image.resize(image.size() * 2);
    std::string imageText = ToUtf8(std::u16string_view(image.data(), cchImage));
    std::string commandLine = ToUtf8(GetCommandLineW());
    return RunOnTable(true, [&](SqlConnection& conn) {
        SqlStatement insert =
            conn.Prepare("INSERT INTO processes(pid, start_id, image, command_line, start_time)"
                         " VALUES (?1, ?2, ?3, ?4, ?5) RETURNING seq");
        insert.Bind(1, GetCurrentProcessId())
            .Bind(2, self ? static_cast<LONGLONG>(self->ullStartIdentity) : 0)
            .Bind(3, imageText)
            .Bind(4, commandLine)
            .Bind(5, static_cast<LONGLONG>(eventlog::FileTimeNow()));
        LONGLONG llRow = insert.Step() ? insert.Int64(0) : 0;
        while (insert.Step()) {
        }
        conn.Prepare("DELETE FROM processes WHERE seq <= ?1").Bind(1, llRow - kRowsKept).Step();
        g_llOwnRow = llRow;
        return DWORD(ERROR_SUCCESS);
    });
}

DWORD RecordExit(DWORD dwExitCode)
{
    LONGLONG llRow = g_llOwnRow.load();
    if (llRow == 0)
        return ERROR_SUCCESS;
    return RunOnTable(true, [&](SqlConnection& conn) {
        conn.Prepare("UPDATE processes SET exit_code = ?1, end_time = ?2 WHERE seq = ?3")
            .Bind(1, dwExitCode)
            .Bind(2, static_cast<LONGLONG>(eventlog::FileTimeNow()))
            .Bind(3, llRow)
            .Step();
        return DWORD(ERROR_SUCCESS);
    });
}

DWORD FindRecord(DWORD dwProcessId, std::optional<ULONGLONG> startIdentity, ProcessRecord* pRecord)
{
    return RunOnTable(false, [&](SqlConnection& conn) {
        SqlStatement select = conn.Prepare(
            "SELECT pid, start_id, image, command_line, start_time, exit_code, end_time"
            " FROM processes WHERE pid = ?1 AND (?2 IS NULL OR start_id = ?2)"
            " ORDER BY seq DESC LIMIT 1");
        select.Bind(1, dwProcessId);
        if (startIdentity)
            select.Bind(2, static_cast<LONGLONG>(*startIdentity));
        else
            select.BindNull(2);
        if (!select.Step())
            return DWORD(ERROR_NOT_FOUND);
        *pRecord = RowToRecord(select);
        return DWORD(ERROR_SUCCESS);
    });
}

void CompleteRecord(ProcessRecord* pRecord)
{
    std::optional<HostProcess> host = ReadHostProcess(pRecord->dwProcessId);
    pRecord->fRunning =
        host && !host->fEnded && host->ullStartIdentity == pRecord->ullStartIdentity;
    if (pRecord->fRunning)
        pRecord->dwExitCode = STILL_ACTIVE;
    else if (!pRecord->fExitRecorded)
        pRecord->dwExitCode = kUnrecordedExitCode;
}

} // namespace pal::detail::process

namespace pal {

DWORD ReadProcessTable(std::vector<ProcessRecord>* pRecords)
{
    pRecords->clear();
    std::vector<ProcessRecord> records;
    DWORD dwError = detail::process::RunOnTable(false, [&](detail::SqlConnection& conn) {
        detail::SqlStatement select = conn.Prepare(
            "SELECT pid, start_id, image, command_line, start_time, exit_code, end_time"
            " FROM processes ORDER BY seq");
        while (select.Step())
            records.push_back(detail::process::RowToRecord(select));
        return DWORD(ERROR_SUCCESS);
    });
    if (dwError != ERROR_SUCCESS)
        return dwError;
    for (ProcessRecord& record : records)
        detail::process::CompleteRecord(&record);
    *pRecords = std::move(records);
    return ERROR_SUCCESS;
}

} // namespace pal
