// CreateServiceW: a new service in the database, stopped and never started.
#include "pal/errhandlingapi.h"
#include "pal/src/base/accounts.h"
#include "pal/src/base/internal.h"
#include "pal/src/service/access.h"
#include "pal/src/service/call.h"
#include "pal/src/service/store.h"

using namespace pal::detail::service;

namespace {

// The longest service and display names Windows accepts.
constexpr size_t kMaxName = 256;

SC_HANDLE Fail(DWORD dwError)
{
    SetLastError(dwError);
    return nullptr;
}

DWORD CheckName(std::u16string_view name)
{
    if (name.empty() || name.size() > kMaxName ||
        name.find_first_of(u"/\\") != std::u16string_view::npos)
        return ERROR_INVALID_NAME;
    return ERROR_SUCCESS;
}

// Only services that run in a process of their own can run on this machine.
DWORD CheckKind(DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                const pal::detail::MachineAccount& account)
{
    DWORD dwBase = dwServiceType & ~DWORD(SERVICE_INTERACTIVE_PROCESS);
    if (dwBase != SERVICE_WIN32_OWN_PROCESS && dwBase != SERVICE_WIN32_SHARE_PROCESS)
        return ERROR_INVALID_PARAMETER;
    // Only the local system account may interact with the desktop.
    if ((dwServiceType & SERVICE_INTERACTIVE_PROCESS) && account.pszPassword != nullptr)
        return ERROR_INVALID_PARAMETER;
    // Boot and system starts are for drivers.
    if (dwStartType != SERVICE_AUTO_START && dwStartType != SERVICE_DEMAND_START &&
        dwStartType != SERVICE_DISABLED)
        return ERROR_INVALID_PARAMETER;
    if (dwErrorControl > SERVICE_ERROR_CRITICAL)
        return ERROR_INVALID_PARAMETER;
    return ERROR_SUCCESS;
}

std::vector<std::u16string> SplitList(LPCWSTR lpList)
{
    std::vector<std::u16string> items;
    for (const WCHAR* p = lpList; p && *p; p += items.back().size() + 1)
        items.emplace_back(p);
    return items;
}

} // namespace

SC_HANDLE WINAPI CreateServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPCWSTR lpDisplayName,
                                DWORD dwDesiredAccess, DWORD dwServiceType, DWORD dwStartType,
                                DWORD dwErrorControl, LPCWSTR lpBinaryPathName,
                                LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                                LPCWSTR lpServiceStartName, LPCWSTR lpPassword)
{
    if (pal::detail::FailIfInjected("CreateServiceW", lpServiceName))
        return nullptr;
    std::optional<ScHandle> manager = FindHandle(hSCManager);
    if (!manager || !manager->fManager)
        return Fail(ERROR_INVALID_HANDLE);
    if (!(manager->dwGranted & SC_MANAGER_CREATE_SERVICE))
        return Fail(ERROR_ACCESS_DENIED);
    if (!lpServiceName)
        return Fail(ERROR_INVALID_ADDRESS);
    try {
        ServiceRecord record;
        record.name = lpServiceName;
        record.display = lpDisplayName && *lpDisplayName ? lpDisplayName : lpServiceName;
        if (DWORD dwError = CheckName(record.name))
            return Fail(dwError);
        if (record.display.size() > kMaxName)
            return Fail(ERROR_INVALID_NAME);
        if (!lpBinaryPathName || !*lpBinaryPathName)
            return Fail(ERROR_INVALID_PARAMETER);
        record.account = lpServiceStartName ? lpServiceStartName : u"LocalSystem";
        const pal::detail::MachineAccount* pAccount =
            pal::detail::FindAccountByName(record.account);
        if (!pAccount)
            return Fail(ERROR_INVALID_SERVICE_ACCOUNT);
        if (DWORD dwError = CheckKind(dwServiceType, dwStartType, dwErrorControl, *pAccount))
            return Fail(dwError);
        record.dependencies = SplitList(lpDependencies);
        for (const std::u16string& dependency : record.dependencies)
            if (FoldedName(dependency) == FoldedName(record.name))
                return Fail(ERROR_CIRCULAR_DEPENDENCY);
        ScHandle handle;
        if (!GrantServiceAccess(dwDesiredAccess, &handle.dwGranted))
            return Fail(ERROR_ACCESS_DENIED);

        record.dwType = dwServiceType;
        record.dwStartType = dwStartType;
        record.dwErrorControl = dwErrorControl;
        record.imagePath = lpBinaryPathName;
        record.loadOrderGroup = lpLoadOrderGroup ? lpLoadOrderGroup : u"";
        // The local system account has no password to keep.
        record.password = pAccount->pszPassword && lpPassword ? lpPassword : u"";
        record.status.dwServiceType = dwServiceType;
        record.status.dwCurrentState = SERVICE_STOPPED;
        record.status.dwWin32ExitCode = ERROR_SERVICE_NEVER_STARTED;
        DWORD dwError = RunCall(true, [&](SqlConnection& conn) -> DWORD {
            if (std::optional<LONGLONG> id = FindServiceByName(conn, record.name)) {
                ServiceRecord existing;
                return LoadService(conn, *id, &existing) && existing.fMarked
                           ? ERROR_SERVICE_MARKED_FOR_DELETE
                           : ERROR_SERVICE_EXISTS;
            }
            // Names and display names share one namespace.
            if (FindServiceByDisplayName(conn, record.name) ||
                FindServiceByDisplayName(conn, record.display) ||
                FindServiceByName(conn, record.display))
                return ERROR_DUPLICATE_SERVICE_NAME;
            InsertService(conn, &record);
            return ERROR_SUCCESS;
        });
        if (dwError != ERROR_SUCCESS)
            return Fail(dwError);
        if (lpdwTagId)
            *lpdwTagId = 0;
        handle.llServiceId = record.llId;
        handle.name = record.name;
        return InsertHandle(std::move(handle));
    } catch (const std::bad_alloc&) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
}
