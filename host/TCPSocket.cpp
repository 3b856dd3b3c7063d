#include "host/TCPSocket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "host/Deadline.h"
#include "host/ExceptionWrapper.h"
#include "host/IOException.h"
#include "host/ResolveIPv4.h"

namespace host {

namespace {

// Write sends at once from this much on: often enough that a handler which never returns to the
// pump still gets its bytes out, rarely enough that a burst of small messages costs few send()s.
constexpr std::int64_t kSendAtOnce = std::int64_t{64} << 10;
// A read when the kernel holds nothing only learns whether the peer has closed.
constexpr std::size_t kProbeSize = 4096;
// One turn's read: a burst of this size is handed over whole, and what it costs in memory, with
// the answers it may raise, stays within bounds.
constexpr std::size_t kReadPerTurn = std::size_t{12} << 20;
// A read of this much is a flood, which gets room for the rest of the turn at once.
constexpr std::size_t kFloodRead = std::size_t{64} << 10;
// How long the rest of a message that has partly arrived is waited for.
constexpr int kRestOfMessageWaitMs = 50;

std::string callError(const char* call, int error) {
    return std::string(call) + ": " + std::strerror(error);
}

}  // namespace

TCPSocket::~TCPSocket() {
    release();
}

void TCPSocket::Connect() {
    Close();
    // A new connection is a new stream: bytes of the old one would corrupt its framing.
    received_.clear();
    state_ = State::Connecting;

    sockaddr_in address{};
    int error = 0;
    std::string problem = resolveIPv4(Address, Port, address, error);
    if (!problem.empty()) {
        postFailure(std::move(problem), error);
        return;
    }
    fd_ = UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd_) {
        error = errno;
        postFailure(callError("socket", error), error);
        return;
    }
    // Small messages go out at once; failing to set it costs only latency.
    int one = 1;
    ::setsockopt(fd_.get(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    // EINTR leaves the connection going on in the background, just like EINPROGRESS.
    if (::connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
        errno != EINPROGRESS && errno != EINTR) {
        error = errno;
        release();
        postFailure(callError("connect", error), error);
        return;
    }
    // Even an immediate success is reported by the pump, never from inside Connect.
    watch_ = EventPump::instance().watch(fd_.get(), POLLOUT,
                                         [this](short revents) { onReady(revents); });
}

void TCPSocket::Close() {
    release();
    state_ = State::Idle;
    discardOutgoing();
    pendingFailure_.reset();
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
    // A failure waiting for the pump means these bytes could never leave.
    if ((state_ != State::Connecting && state_ != State::Connected) || pendingFailure_) {
        return;
    }
    outgoing_.append(data.bytes());
    if (BytesLeftToSend() >= kSendAtOnce) {
        Flush();
    } else {
        updateInterest();
    }
}

void TCPSocket::Flush() {
    if (state_ != State::Connected || pendingFailure_) {
        return;
    }
    int error = 0;
    flushOutgoing(error);
    if (error != 0) {
        // Reported by the pump, never from here.
        postFailure(callError("send", error), error);
    }
    updateInterest();
}

String TCPSocket::ReadAll(TextEncoding encoding) {
    String bytes(std::move(received_), encoding);
    received_.clear();
    return bytes;
}

void TCPSocket::flushWithin(std::int64_t milliseconds) {
    const Deadline deadline = Deadline::in(std::chrono::milliseconds(milliseconds));
    int error = 0;
    while (state_ == State::Connected && !flushOutgoing(error) && error == 0 &&
           !deadline.passed()) {
        pollfd writable{fd_.get(), POLLOUT, 0};
        if (::poll(&writable, 1, deadline.pollTimeout()) < 0 && errno != EINTR) {
            break;
        }
    }
    updateInterest();
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
    if (::getsockopt(fd_.get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
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
    } else if ((revents & (POLLIN | POLLRDHUP | POLLHUP | POLLERR)) != 0) {
        readAvailable(readError, closed);
    }
    bool sentAll = false;
    if (readError == 0 && !closed && (revents & POLLOUT) != 0 && BytesLeftToSend() > 0) {
        sentAll = flushOutgoing(sendError);
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
        if (sentAll) {
            Event_SendComplete();
        }
    }
}

void TCPSocket::fail(const std::string& message, int error) {
    IOException err{String(message), error};
    state_ = State::Failed;
    // A failure that Write or Flush left for the pump may be overtaken by one found here.
    pendingFailure_.reset();
    release();
    discardOutgoing();
    Event_Error(err);
}

void TCPSocket::postFailure(std::string message, int error) {
    pendingFailure_.emplace(std::move(message), error);
    // Not kept alive by the task: a socket dropped meanwhile has nobody left to tell.
    EventPump::instance().post([this, alive = weak_from_this()] {
        if (!alive.expired()) {
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
    const auto [message, error] = *std::exchange(pendingFailure_, std::nullopt);
    fail(message, error);
}

// Reads until the kernel holds nothing more, so that what has arrived is handed over whole, and
// where that ends inside one of the peer's messages, waits a moment for the rest, which is
// usually just behind. A sender that refills as fast as it is read would make that endless, so
// kReadPerTurn bounds one turn, and the turn then reads on to the end of the message under way:
// the reading never splits a message that has arrived.
void TCPSocket::readAvailable(int& error, bool& closed) {
    std::size_t total = 0;
    std::size_t limit = kReadPerTurn;
    for (;;) {
        if (total >= limit) {
            const std::size_t missing = bytesShortOfWholeMessage(received_);
            if (missing == 0) {
                return;
            }
            limit = total + missing;
        }
        int queued = 0;
        if (::ioctl(fd_.get(), FIONREAD, &queued) != 0) {
            error = errno;
            return;
        }
        // Nothing queued: all is read, or the peer has closed or failed, and recv says which.
        const std::size_t want =
            std::min(queued > 0 ? static_cast<std::size_t>(queued) : kProbeSize, limit - total);
        const std::size_t start = received_.size();
        // A flood gets room for the whole turn at once: growing by doubling would copy it, and
        // hold both copies, on its way in. Room it does not fill is never touched.
        if (want >= kFloodRead) {
            received_.reserve(start + limit - total);
        }
        received_.resize(start + want);
        const ssize_t count = ::recv(fd_.get(), received_.data() + start, want, 0);
        received_.resize(start + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count > 0) {
            total += static_cast<std::size_t>(count);
        } else if (count == 0) {
            closed = true;
            return;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            pollfd more{fd_.get(), POLLIN, 0};
            if (bytesShortOfWholeMessage(received_) == 0 ||
                ::poll(&more, 1, kRestOfMessageWaitMs) <= 0) {
                return;
            }
        } else if (errno != EINTR) {
            error = errno;
            return;
        }
    }
}

bool TCPSocket::flushOutgoing(int& error) {
    while (!outgoing_.empty()) {
        const ssize_t count =
            ::send(fd_.get(), outgoing_.view().data(), outgoing_.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            outgoing_.consume(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                error = errno;
            }
            break;
        }
    }
    return outgoing_.empty();
}

void TCPSocket::discardOutgoing() {
    outgoing_.clear();
    backedUp_ = false;
}

void TCPSocket::updateInterest() {
    const std::int64_t left = BytesLeftToSend();
    if (left > kHighWater) {
        backedUp_ = true;
    } else if (left < kLowWater) {
        backedUp_ = false;
    }
    if (watch_ == 0) {
        return;
    }
    short events = POLLOUT;
    if (state_ == State::Connected) {
        // Paused, a peer that closes its end is still noticed: its last bytes are then all there
        // is to read.
        events = backedUp_ ? POLLRDHUP : POLLIN;
        if (left > 0) {
            events = static_cast<short>(events | POLLOUT);
        }
    }
    EventPump::instance().setEvents(watch_, events);
}

void TCPSocket::release() {
    if (watch_ != 0) {
        EventPump::instance().unwatch(watch_);
        watch_ = 0;
    }
    fd_.reset();
}

}  // namespace host
