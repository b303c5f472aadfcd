// The start and end of the API calls on service handles.
#include "pal/src/service/call.h"

#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "pal/winerror.h"

namespace pal::detail::service {

bool EnterService(const char* api, SC_HANDLE hService, DWORD dwNeeded, ScHandle* pHandle)
{
    std::optional<ScHandle> handle = FindServiceHandle(hService);
    if (FailIfInjected(api, handle ? handle->name.c_str() : nullptr))
        return false;
    if (!handle) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    if ((handle->dwGranted & dwNeeded) != dwNeeded) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    *pHandle = std::move(*handle);
    return true;
}

BOOL Finish(DWORD dwError)
{
    if (dwError == ERROR_SUCCESS)
        return TRUE;
    SetLastError(dwError);
    return FALSE;
}

} // namespace pal::detail::service
