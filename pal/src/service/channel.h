// The control channel between any process of the machine and a service's process: a Unix
// socket under the machine root on which the service's dispatcher listens. A request is the
// control code (4 bytes); the reply, once the handler has returned, is ERROR_SUCCESS or the
// reason it was not delivered (4 bytes).
#pragma once

#include "pal/windef.h"

namespace pal::detail::service {

// Delivers dwControl to the service's process and waits for its handler to return, up to
// dwTimeoutMs of the platform clock. ERROR_SERVICE_REQUEST_TIMEOUT when no reply came in time,
// ERROR_SERVICE_NOT_ACTIVE when nothing listens or the process went away, else the reply.
DWORD SendControl(LONGLONG llServiceId, DWORD dwControl, DWORD dwTimeoutMs);

// The dispatcher's listening socket (non-blocking, close-on-exec), or -1 with errno set.
int ListenForControls(LONGLONG llServiceId);
// Removes the socket's name once the dispatcher has stopped listening.
void ForgetControls(LONGLONG llServiceId);
// Reads one request from an accepted connection within dwTimeoutMs; false when none came.
bool ReceiveControl(int fd, DWORD dwTimeoutMs, DWORD* pdwControl);
void ReplyControl(int fd, DWORD dwResult);

} // namespace pal::detail::service
