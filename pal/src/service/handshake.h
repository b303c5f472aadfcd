// The start of a service process: the manager hands the new process its service in the
// environment (ORVSIM_SERVICE) and one end of a socket pair. Over the pair it sends the
// arguments for ServiceMain; the process's dispatcher answers one byte once ServiceMain has
// started.
#pragma once

#include "pal/windef.h"

#include <string>
#include <vector>

namespace pal::detail::service {

struct ServiceIdentity
{
    LONGLONG llId = 0;
    int lockFd = -1;      // holds the service's lock (runfiles.h)
    int handshakeFd = -1; // the process's end of the pair
    std::u16string name;
};

// "ORVSIM_SERVICE=<id>:<lock fd>:<handshake fd>:<name>"
std::string IdentityVariable(const ServiceIdentity& identity);
// The identity the manager gave this process; false when it gave none.
bool ReadIdentityVariable(ServiceIdentity* pIdentity);

bool SendArguments(int fd, const std::vector<std::u16string>& args);
bool ReceiveArguments(int fd, std::vector<std::u16string>* pArgs);
// True when the dispatcher announced the start within dwTimeoutMs of the platform clock.
bool WaitForStart(int fd, DWORD dwTimeoutMs);
void AnnounceStart(int fd);

} // namespace pal::detail::service
