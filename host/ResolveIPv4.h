#pragma once

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "host/String.h"

namespace host {

// Fills `address` for a dotted IPv4 address or a host name. Empty on success; otherwise the
// reason, with its errno in `error` (0 for a resolver failure). A name blocks while it is looked
// up, which is acceptable for the controller's address at start-up.
inline std::string resolveIPv4(const String& host, std::int64_t port, sockaddr_in& address,
                               int& error) {
    if (port < 1 || port > 65535) {
        error = EINVAL;
        return "connect: port " + std::to_string(port) + " out of range";
    }
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::inet_pton(AF_INET, host.bytes().c_str(), &address.sin_addr) == 1) {
        return {};
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int status = ::getaddrinfo(host.bytes().c_str(), nullptr, &hints, &found);
    if (status != 0) {
        error = status == EAI_SYSTEM ? errno : 0;
        return "getaddrinfo(" + host.bytes() + "): " + ::gai_strerror(status);
    }
    address.sin_addr = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
    ::freeaddrinfo(found);
    return {};
}

}  // namespace host
