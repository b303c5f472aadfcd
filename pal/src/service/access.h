// Rights on the manager and on services, as Windows' default security grants them to the
// calling process's account.
#pragma once

#include "pal/windef.h"

namespace pal::detail::service {

// The rights granted for dwDesired (generic rights and MAXIMUM_ALLOWED mapped), or false when
// the account may not have them all: the open fails with ERROR_ACCESS_DENIED.
bool GrantManagerAccess(DWORD dwDesired, DWORD* pdwGranted);
bool GrantServiceAccess(DWORD dwDesired, DWORD* pdwGranted);

} // namespace pal::detail::service
