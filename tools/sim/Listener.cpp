#include "tools/sim/Listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace sim {

namespace {

bool bindLoopback(int fd, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

Listener::Listener(int port) {
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0) {
        throw std::runtime_error(std::string("cannot make a socket: ") + std::strerror(errno));
    }
    const int on = 1;
    ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (!bindLoopback(fd_, port)) {
        const int error = errno;
        if (port == 0 || error != EADDRINUSE || !bindLoopback(fd_, 0)) {
            close();
            throw std::runtime_error("cannot listen on 127.0.0.1:" + std::to_string(port) + ": " +
                                     std::strerror(error));
        }
        tookFreePort_ = true;
    }
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    if (::listen(fd_, 1) != 0 ||
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
        const int error = errno;
        close();
        throw std::runtime_error(std::string("cannot listen: ") + std::strerror(error));
    }
    port_ = ntohs(bound.sin_port);
}

Listener::~Listener() {
    close();
}

int Listener::accept() const {
    return fd_ < 0 ? -1 : ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

void Listener::close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

}  // namespace sim
