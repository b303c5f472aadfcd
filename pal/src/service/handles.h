// The process's table of open SC_HANDLE values: the manager's and the services'.
#pragma once

#include "pal/winsvc.h"

#include <optional>
#include <string>

namespace pal::detail::service {

struct ScHandle
{
    bool fManager = false;
    DWORD dwGranted = 0;
    LONGLONG llServiceId = 0; // services only
    std::u16string name;      // the service's name as the database keeps it
    std::string root;         // $ORVSIM_ROOT when it was opened
};

// A new handle. Values are never reused within a process, so a stale handle fails with
// ERROR_INVALID_HANDLE rather than reaching another service.
SC_HANDLE InsertHandle(ScHandle handle);
// The handle's entry; none for a value that is not open, or was opened on another machine root.
std::optional<ScHandle> FindHandle(SC_HANDLE h);
std::optional<ScHandle> FindServiceHandle(SC_HANDLE h);
// False when the value is not open.
bool EraseHandle(SC_HANDLE h, ScHandle* pErased);
// True while this process has a handle open to the service.
bool AnyHandleTo(LONGLONG llServiceId);

} // namespace pal::detail::service
