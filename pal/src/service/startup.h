// Starting a service, as StartServiceW and as COM's activation of a class whose server is a
// service do.
#pragma once

#include "pal/windef.h"

#include <string>
#include <string_view>
#include <vector>

namespace pal::detail::service {

// Starts the service with its arguments and waits for its dispatcher: StartServiceW's work after
// the handle's checks. ERROR_SUCCESS or StartServiceW's error.
DWORD StartServiceRecord(LONGLONG llServiceId, const std::vector<std::u16string>& args);

// COM's activation starts a class's service on the caller's behalf, by the manager's own rights
// rather than the caller's (a plain user may activate a class it may not start as a service).
// *pllServiceId names the service for ActivatedServiceState; ERROR_SERVICE_DOES_NOT_EXIST when
// there is no such service.
DWORD StartServiceForActivation(std::u16string_view name, const std::vector<std::u16string>& args,
                                LONGLONG* pllServiceId);
// The service's current state, its process's death noticed; SERVICE_STOPPED once it is gone.
DWORD ActivatedServiceState(LONGLONG llServiceId);

} // namespace pal::detail::service
