// The server's listening socket.
#ifndef QRIX_HOST_LISTENER_H_
#define QRIX_HOST_LISTENER_H_

#include <string>

#include "platform/vlibc/unique_fd.h"

namespace qrix::host {

// Listens on `address` (an IPv4 or IPv6 literal) and `port` (0: any free port). The socket is
// non-blocking, so that a worker that loses the race for a connection is not stuck in accept.
// Returns an invalid descriptor with a reason on failure; `bound_port` gets the real port.
UniqueFd Listen(const std::string& address, int port, int* bound_port, std::string* error);

}  // namespace qrix::host

#endif  // QRIX_HOST_LISTENER_H_
