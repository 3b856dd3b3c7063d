#include "host/TCPSocket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <unordered_set>
#include <utility>

#include "host/ExceptionWrapper.h"
#include "host/IOException.h"

namespace host {

namespace {

// Enough to drain a busy link in a few turns, small enough that a flood cannot starve the
// rest of the pump.
constexpr std::size_t kReadPerTurn = 1 << 20;

// Never destroyed: sockets with static lifetime still erase themselves during exit.
std::unordered_set<TCPSocket*>& liveSockets() {
    static auto* sockets = new std::unordered_set<TCPSocket*>;
    return *sockets;
}

std::string callError(const char* call, int error) {
    return std::string(call) + ": " + std::strerror(error);
}

// Empty on success; otherwise the reason, with its errno (0 for a resolver failure).
std::string resolve(const String& host, std::int64_t port, sockaddr_in& address, int& error) {
    if (port < 1 || port > 65535) {
        error = EINVAL;
        return "connect: port " + std::to_string(port) + " out of range";
    }
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::inet_pton(AF_INET, host.bytes().c_str(), &address.sin_addr) == 1) {
        return {};
    }
    // A name: resolving blocks, which is acceptable for the controller's address at start-up.
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int status = ::getaddrinfo(host.bytes().c_str(), nullptr, &hints, &found);
    if (status != 0) {
        error = status == EAI_SYSTEM ? errno : 0;
        return "getaddrinfo(" + host.bytes() + "): " + ::gai_strerror(status);
    }
    address.sin_addr = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
    ::freeaddrinfo(found);
    return {};
}

}  // namespace

TCPSocket::TCPSocket() {
    liveSockets().insert(this);
}

TCPSocket::~TCPSocket() {
    liveSockets().erase(this);
    release();
}

void TCPSocket::Connect() {
    Close();
    // A new connection is a new stream: bytes of the old one would corrupt its framing.
    received_.clear();
    state_ = State::Connecting;

    sockaddr_in address{};
    int error = 0;
    std::string problem = resolve(Address, Port, address, error);
    if (!problem.empty()) {
        postFailure(std::move(problem), error);
        return;
    }
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
        error = errno;
        postFailure(callError("socket", error), error);
        return;
    }
    // Small messages go out at once; failing to set it costs only latency.
    int one = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    // EINTR leaves the connection going on in the background, just like EINPROGRESS.
    if (::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
        errno != EINPROGRESS && errno != EINTR) {
        error = errno;
        release();
        postFailure(callError("connect", error), error);
        return;
    }
    // Even an immediate success is reported by the pump, never from inside Connect.
    watch_ = EventPump::instance().watch(fd_, POLLOUT, [this](short revents) { onReady(revents); });
}

void TCPSocket::Close() {
    release();
    state_ = State::Idle;
    outgoing_.clear();
    pendingFailure_ = false;
}

void TCPSocket::Poll() {
    auto self = weak_from_this().lock();
    if (pendingFailure_) {
        ExceptionWrapper::run([this] { deliverPending(); });
    }
    if (watch_ != 0) {
        EventPump::instance().serviceNow(watch_);
    }
}

void TCPSocket::Write(const String& data) {
    if (state_ != State::Connecting && state_ != State::Connected) {
        return;
    }
    // Only queued: the pump sends everything written within one turn in a single send().
    outgoing_ += data.bytes();
    updateInterest();
}

String TCPSocket::ReadAll(TextEncoding encoding) {
    String bytes(std::move(received_), encoding);
    received_.clear();
    return bytes;
}

void TCPSocket::flushAll(std::int64_t milliseconds) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    for (TCPSocket* socket : liveSockets()) {
        if (socket->state_ != State::Connected) {
            continue;
        }
        int error = 0;
        while (!socket->flushOutgoing(error) && error == 0) {
            auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) {
                break;
            }
            pollfd probe{socket->fd_, POLLOUT, 0};
            int wait = static_cast<int>(std::min<std::int64_t>(left.count(), INT_MAX));
            if (::poll(&probe, 1, wait) < 0 && errno != EINTR) {
                break;
            }
        }
    }
}

void TCPSocket::onReady(short revents) {
    // An event handler may drop the last owner of this socket.
    auto self = weak_from_this().lock();
    if (state_ == State::Connecting) {
        finishConnect();
    } else {
        serveConnection(revents);
    }
}

void TCPSocket::finishConnect() {
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        error = errno;
    }
    if (error != 0) {
        fail(callError("connect", error), error);
        return;
    }
    state_ = State::Connected;
    updateInterest();
    Event_Connected();
}

void TCPSocket::serveConnection(short revents) {
    const EventPump::WatchId watch = watch_;
    const std::size_t before = received_.size();
    int readError = 0;
    int sendError = 0;
    bool closed = false;
    if ((revents & POLLNVAL) != 0) {
        readError = EBADF;
    } else if ((revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
        readAvailable(readError, closed);
    }
    if (readError == 0 && !closed && (revents & POLLOUT) != 0) {
        flushOutgoing(sendError);
    }
    // Bytes that came before a close or an error are delivered before it.
    if (received_.size() > before) {
        Event_DataAvailable();
        if (watch_ != watch) {
            return;  // the handler closed or reconnected the socket
        }
    }
    if (readError != 0) {
        fail(callError("recv", readError), readError);
    } else if (closed) {
        fail("closed by peer", 0);
    } else if (sendError != 0) {
        fail(callError("send", sendError), sendError);
    } else {
        updateInterest();
    }
}

void TCPSocket::fail(const std::string& message, int error) {
    IOException err{String(message), error};
    state_ = State::Failed;
    release();
    outgoing_.clear();
    Event_Error(err);
}

void TCPSocket::postFailure(std::string message, int error) {
    pendingFailure_ = true;
    pendingMessage_ = std::move(message);
    pendingError_ = error;
    // Not kept alive by the task: a socket dropped meanwhile has nobody left to tell, and the
    // registry shows whether it still exists.
    EventPump::instance().post([this] {
        if (liveSockets().contains(this)) {
            deliverPending();
        }
    });
}

void TCPSocket::deliverPending() {
    // Poll and the posted task both come here; whichever is first delivers it.
    if (!pendingFailure_) {
        return;
    }
    auto self = weak_from_this().lock();
    pendingFailure_ = false;
    fail(std::exchange(pendingMessage_, {}), pendingError_);
}

void TCPSocket::readAvailable(int& error, bool& closed) {
    std::array<char, std::size_t{64} * 1024> buffer;  // filled by recv(), so left uninitialised
    std::size_t total = 0;
    while (total < kReadPerTurn) {
        ssize_t count = ::recv(fd_, buffer.data(), buffer.size(), 0);
        if (count > 0) {
            received_.append(buffer.data(), static_cast<std::size_t>(count));
            total += static_cast<std::size_t>(count);
        } else if (count == 0) {
            closed = true;
            return;
        } else if (errno != EINTR) {
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                error = errno;
            }
            return;
        }
    }
}

bool TCPSocket::flushOutgoing(int& error) {
    std::size_t sent = 0;
    while (sent < outgoing_.size()) {
        ssize_t count = ::send(fd_, outgoing_.data() + sent, outgoing_.size() - sent, MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                error = errno;
            }
            break;
        }
    }
    outgoing_.erase(0, sent);
    return outgoing_.empty();
}

void TCPSocket::updateInterest() {
    if (watch_ == 0) {
        return;
    }
    short events = POLLOUT;
    if (state_ == State::Connected) {
        events = outgoing_.empty() ? POLLIN : POLLIN | POLLOUT;
    }
    EventPump::instance().setEvents(watch_, events);
}

void TCPSocket::release() {
    if (watch_ != 0) {
        EventPump::instance().unwatch(watch_);
        watch_ = 0;
    }
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

}  // namespace host
