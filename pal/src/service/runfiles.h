// The files of a running service under <machine root>/services: the lock its process holds for
// its whole life, its control socket and the output of its process.
#pragma once

#include "pal/windef.h"

#include <string>

namespace pal::detail::service {

// The absolute machine root, the same text in every process whatever its working directory.
std::string AbsoluteMachineRoot();
// <machine root>/services/<id>.<suffix>, the folder created.
std::string RunFilePath(LONGLONG llServiceId, const char* suffix);

// Takes the service's lock for a process about to start: an open descriptor (close-on-exec)
// holding it, or -1 when a process of the service still holds it.
int TakeServiceLock(LONGLONG llServiceId);
// True while a process of the service holds its lock: it is alive.
bool ServiceLockHeld(LONGLONG llServiceId);

} // namespace pal::detail::service
