// Whole messages over the manager's sockets: the start handshake and the control channel.
#pragma once

#include <cstddef>

namespace pal::detail::service {

// Sends exactly cb bytes (never raising SIGPIPE); false when the peer has gone or on an error.
bool SendAll(int fd, const void* pv, size_t cb);
// Receives exactly cb bytes; false at the end of the stream or on an error.
bool ReceiveAll(int fd, void* pv, size_t cb);

} // namespace pal::detail::service
