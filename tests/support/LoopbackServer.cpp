#include "LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace testsupport {

namespace {

bool waitReadable(int fd, std::chrono::milliseconds limit) {
    // No test catches a signal, so no wait is cut short.
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(limit.count())) > 0;
}

sockaddr_in loopbackAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

}  // namespace

LoopbackServer::LoopbackServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopbackAddress(0);
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_, 4) != 0) {
        throw std::runtime_error("cannot listen on loopback");
    }
    socklen_t length = sizeof address;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
}

LoopbackServer::~LoopbackServer() {
    closeClient();
    ::close(listener_);
    for (int fd : waiting_) {
        ::close(fd);
    }
}

bool LoopbackServer::accept(std::chrono::milliseconds limit) {
    if (!waitReadable(listener_, limit)) {
        return false;
    }
    client_ = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    return client_ >= 0;
}

void LoopbackServer::send(const std::string& bytes) {
    std::size_t sent = 0;
    while (client_ >= 0 && sent < bytes.size()) {
        ssize_t n = ::send(client_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(n);
    }
}

std::string LoopbackServer::receive(std::chrono::milliseconds limit, std::size_t count) {
    std::string bytes;
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (client_ >= 0 && bytes.size() < count) {
        auto left = std::max(std::chrono::milliseconds(0),
                             std::chrono::duration_cast<std::chrono::milliseconds>(
                                 deadline - std::chrono::steady_clock::now()));
        if (!waitReadable(client_, left)) {
            break;
        }
        char buffer[4096];
        ssize_t n = ::recv(client_, buffer, std::min(sizeof buffer, count - bytes.size()), 0);
        if (n <= 0) {
            break;
        }
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    return bytes;
}

void LoopbackServer::closeClient() {
    if (client_ >= 0) {
        ::close(client_);
        client_ = -1;
    }
}

bool LoopbackServer::fillBacklog() {
    // The kernel drops a handshake that finds the queue full, so the last connect hangs.
    for (int attempt = 0; attempt < 64; ++attempt) {
        int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        waiting_.push_back(fd);
        sockaddr_in address = loopbackAddress(port_);
        ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        pollfd entry{fd, POLLOUT, 0};
        if (::poll(&entry, 1, 200) == 0) {
            return true;
        }
    }
    return false;
}

int refusedPort() {
    LoopbackServer server;
    return server.port();
}

}  // namespace testsupport
