#include "LoopbackServer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>

#include "MultiPacketReader.h"
#include "host/Deadline.h"

namespace testsupport {

namespace {

bool waitReadable(int fd, int timeoutMs) {
    // No test catches a signal, so no wait is cut short.
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, timeoutMs) > 0;
}

sockaddr_in loopbackAddress(int port) {
    return {AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
}

}  // namespace

LoopbackServer::LoopbackServer() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopbackAddress(0);
    socklen_t length = sizeof address;
    if (::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listener_.get(), 4) != 0 ||
        ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("cannot listen on loopback");
    }
    port_ = ntohs(address.sin_port);
}

bool LoopbackServer::accept(std::chrono::milliseconds limit) {
    if (waitReadable(listener_.get(), static_cast<int>(limit.count()))) {
        client_ = host::UniqueFd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }
    return static_cast<bool>(client_);
}

void LoopbackServer::send(const std::string& bytes) {
    for (std::size_t sent = 0; client_ && sent < bytes.size();) {
        const ssize_t n =
            ::send(client_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(n);
    }
}

std::string LoopbackServer::receive(std::chrono::milliseconds limit, std::size_t count) {
    std::string bytes;
    const auto deadline = host::Deadline::in(limit);
    while (client_ && bytes.size() < count && waitReadable(client_.get(), deadline.pollTimeout())) {
        char buffer[4096];
        const ssize_t n =
            ::recv(client_.get(), buffer, std::min(sizeof buffer, count - bytes.size()), 0);
        if (n <= 0) {
            break;
        }
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    return bytes;
}

std::vector<std::string> LoopbackServer::take(std::size_t count, std::chrono::milliseconds limit) {
    std::vector<std::string> taken;
    const auto deadline = host::Deadline::in(limit);
    do {
        auto view = readControllerStream(pending_ + receive(std::chrono::milliseconds(10)));
        greeting_ += view.greeting;
        pending_ = view.rest;
        taken.insert(taken.end(), view.inOrder.begin(), view.inOrder.end());
    } while (taken.size() < count && !deadline.passed());
    return taken;
}

bool LoopbackServer::fillBacklog() {
    // The kernel drops a handshake that finds the queue full, so the last connect hangs.
    for (int attempt = 0; attempt < 64; ++attempt) {
        const int fd =
            waiting_.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
                .get();
        const sockaddr_in address = loopbackAddress(port_);
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        pollfd entry{fd, POLLOUT, 0};
        if (::poll(&entry, 1, 200) == 0) {
            return true;
        }
    }
    return false;
}

int refusedPort() {
    return LoopbackServer().port();
}

}  // namespace testsupport
