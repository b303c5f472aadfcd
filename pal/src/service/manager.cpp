// Handles on the manager and on services: OpenSCManagerW, OpenServiceW, CloseServiceHandle,
// and DeleteService, which decides with them when a service goes.
#include "pal/errhandlingapi.h"
#include "pal/src/base/accounts.h"
#include "pal/src/base/internal.h"
#include "pal/src/service/access.h"
#include "pal/src/service/call.h"
#include "pal/src/service/liveness.h"

using namespace pal::detail::service;

namespace {

// The longest service name Windows accepts.
constexpr size_t kMaxServiceName = 256;

bool EqualNoCase(std::u16string_view a, std::u16string_view b)
{
    return FoldedName(a) == FoldedName(b);
}

bool IsLocalMachine(LPCWSTR lpMachineName)
{
    if (!lpMachineName || !*lpMachineName)
        return true;
    std::u16string_view name(lpMachineName);
    while (name.starts_with(u'\\'))
        name.remove_prefix(1);
    return EqualNoCase(name, pal::detail::kComputerName);
}

SC_HANDLE Fail(DWORD dwError)
{
    SetLastError(dwError);
    return nullptr;
}

} // namespace

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName,
                                DWORD dwDesiredAccess)
{
    if (pal::detail::FailIfInjected("OpenSCManagerW"))
        return nullptr;
    if (!IsLocalMachine(lpMachineName))
        return Fail(RPC_S_SERVER_UNAVAILABLE);
    if (lpDatabaseName && !EqualNoCase(lpDatabaseName, SERVICES_ACTIVE_DATABASEW))
        return Fail(EqualNoCase(lpDatabaseName, SERVICES_FAILED_DATABASEW)
                        ? ERROR_DATABASE_DOES_NOT_EXIST
                        : ERROR_INVALID_NAME);
    DWORD dwGranted = 0;
    if (!GrantManagerAccess(dwDesiredAccess, &dwGranted))
        return Fail(ERROR_ACCESS_DENIED);
    // The database is opened (and made on a fresh machine) now, so that a machine root that
    // cannot hold it fails here.
    if (DWORD dwError = RunCall(false, [](SqlConnection&) -> DWORD { return ERROR_SUCCESS; }))
        return Fail(dwError);
    ScHandle handle;
    handle.fManager = true;
    handle.dwGranted = dwGranted;
    try {
        return InsertHandle(std::move(handle));
    } catch (const std::bad_alloc&) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
}

SC_HANDLE WINAPI OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, DWORD dwDesiredAccess)
{
    if (pal::detail::FailIfInjected("OpenServiceW", lpServiceName))
        return nullptr;
    std::optional<ScHandle> manager = FindHandle(hSCManager);
    if (!manager || !manager->fManager)
        return Fail(ERROR_INVALID_HANDLE);
    if (!lpServiceName)
        return Fail(ERROR_INVALID_ADDRESS);
    std::u16string_view name(lpServiceName);
    if (name.empty() || name.size() > kMaxServiceName)
        return Fail(ERROR_INVALID_NAME);
    ServiceRecord record;
    DWORD dwError = RunCall(false, [&](SqlConnection& conn) -> DWORD {
        std::optional<LONGLONG> id = FindServiceByName(conn, name);
        if (!id || !LoadService(conn, *id, &record))
            return ERROR_SERVICE_DOES_NOT_EXIST;
        return ERROR_SUCCESS;
    });
    if (dwError != ERROR_SUCCESS)
        return Fail(dwError);
    ScHandle handle;
    if (!GrantServiceAccess(dwDesiredAccess, &handle.dwGranted))
        return Fail(ERROR_ACCESS_DENIED);
    handle.llServiceId = record.llId;
    handle.name = record.name;
    try {
        return InsertHandle(std::move(handle));
    } catch (const std::bad_alloc&) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
}

BOOL WINAPI CloseServiceHandle(SC_HANDLE hSCObject)
{
    std::optional<ScHandle> open = FindHandle(hSCObject);
    if (pal::detail::FailIfInjected("CloseServiceHandle",
                                    open && !open->fManager ? open->name.c_str() : nullptr))
        return FALSE;
    ScHandle handle;
    if (!EraseHandle(hSCObject, &handle))
        return Finish(ERROR_INVALID_HANDLE);
    if (handle.fManager || AnyHandleTo(handle.llServiceId))
        return TRUE;
    // The last handle of this process to a deleted service lets it go once it is stopped. The
    // handle is closed whatever the database says.
    RunCall(true, [&](SqlConnection& conn) -> DWORD {
        ServiceRecord record;
        if (LoadService(conn, handle.llServiceId, &record) && record.fMarked) {
            if (!NoticeDeath(conn, &record))
                RemoveIfUnused(conn, &record);
        }
        return ERROR_SUCCESS;
    });
    return TRUE;
}

BOOL WINAPI DeleteService(SC_HANDLE hService)
{
    ScHandle handle;
    if (!EnterService("DeleteService", hService, DELETE, &handle))
        return FALSE;
    // The caller's own handle keeps the service until it is closed (CloseServiceHandle).
    return Finish(RunCall(true, [&](SqlConnection& conn) -> DWORD {
        ServiceRecord record;
        if (!LoadService(conn, handle.llServiceId, &record) || record.fMarked)
            return ERROR_SERVICE_MARKED_FOR_DELETE;
        NoticeDeath(conn, &record);
        StoreMarked(conn, record.llId);
        return ERROR_SUCCESS;
    }));
}
