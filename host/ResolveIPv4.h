#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "host/String.h"

namespace host {

// Fills `address` for a dotted IPv4 address or a host name. Empty on success; otherwise the
// reason, with its errno in `error` (0 for a resolver failure). A name blocks while it is looked
// up, which is acceptable for the controller's address at start-up.
std::string resolveIPv4(const String& host, std::int64_t port, sockaddr_in& address, int& error);

}  // namespace host
