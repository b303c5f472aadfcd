// The service database: one connection per process to <machine root>/services.db, reopened
// when $ORVSIM_ROOT changes, and the rows every API call reads and writes. The schema is
// described in docs/ARCHITECTURE.md ("Service control manager").
#pragma once

#include "pal/src/base/sqlitedb.h"
#include "pal/winerror.h"
#include "pal/winsvc.h"

#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace pal::detail::service {

using detail::SqlConnection;
using detail::SqlStatement;

// A service's row: its configuration and its current status.
struct ServiceRecord
{
    LONGLONG llId = 0;
    std::u16string name;
    std::u16string display;
    DWORD dwType = 0;
    DWORD dwStartType = 0;
    DWORD dwErrorControl = 0;
    std::u16string imagePath;
    std::u16string loadOrderGroup;
    std::vector<std::u16string> dependencies;
    std::u16string account;
    std::u16string password;
    std::optional<std::u16string> description;
    bool fMarked = false;  // DeleteService was called
    bool fRemoved = false; // gone from the database's names; its handles still read it
    SERVICE_STATUS status{};
    DWORD dwProcessId = 0;
};

// The service database of the current machine root.
MachineStore& Store();
DWORD Win32FromSqlite(int rc);

// One API call's transaction on the service database; see MachineStore::Transact.
template <class Body>
DWORD RunCall(bool fWrite, Body&& body)
{
    return Store().Transact(fWrite, &Win32FromSqlite, std::forward<Body>(body));
}

// Case folding of names, as the registry folds key names.
std::string FoldedName(std::u16string_view name);

// The live service of that name, or of that display name.
std::optional<LONGLONG> FindServiceByName(SqlConnection& conn, std::u16string_view name);
std::optional<LONGLONG> FindServiceByDisplayName(SqlConnection& conn, std::u16string_view display);
// False when no row has the id.
bool LoadService(SqlConnection& conn, LONGLONG llId, ServiceRecord* pRecord);
// Inserts a new service; its id is set.
void InsertService(SqlConnection& conn, ServiceRecord* pRecord);
void StoreDescription(SqlConnection& conn, LONGLONG llId,
                      const std::optional<std::u16string>& description);
void StoreMarked(SqlConnection& conn, LONGLONG llId);
// The service's name and display name become free; its row stays for the handles still open.
void StoreRemoved(SqlConnection& conn, LONGLONG llId);

// Sets the current status and process, and records the report; dwProcessId is who reported.
// A stopped service has no process.
void RecordStatus(SqlConnection& conn, LONGLONG llId, const SERVICE_STATUS& status,
                  DWORD dwProcessId, bool fByManager);

// The id of the service that last had the name, removed or not.
std::optional<LONGLONG> FindLastServiceByName(SqlConnection& conn, std::u16string_view name);

} // namespace pal::detail::service
