// The start and end of the API calls on service handles.
#pragma once

#include "pal/src/service/handles.h"

namespace pal::detail::service {

// The fault hook `api` (matched on the service's name), then the handle (a service's, open:
// else ERROR_INVALID_HANDLE) and the rights it was opened with (ERROR_ACCESS_DENIED). False
// with the last error set.
bool EnterService(const char* api, SC_HANDLE hService, DWORD dwNeeded, ScHandle* pHandle);
// TRUE for ERROR_SUCCESS; otherwise FALSE with dwError as the last error.
BOOL Finish(DWORD dwError);

} // namespace pal::detail::service
