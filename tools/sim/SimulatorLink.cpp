#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "host/ByteOrder.h"
#include "host/StringFunctions.h"
#include "tools/sim/Printable.h"
#include "tools/sim/Simulator.h"

namespace sim {

namespace {

constexpr std::size_t kReadChunk = 65536;
constexpr std::size_t kMostOutputLine = 4096;
constexpr std::size_t kMostShownValue = 60;
constexpr std::size_t kMostGreetingBytes = 256;
constexpr char kLead = 'J';
constexpr std::size_t kHeaderSize = 4;
// "NoOp" numbers its property pairs from 0; the driver sends two at most.
constexpr int kMostProperties = 10;

std::string milliseconds(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f ms", seconds * 1000);
    return text.data();
}

std::string trimmed(const host::String& text) {
    return host::Trim(text).bytes();
}

// The address as the driver wrote it and the name of its unit.
std::string who(const std::string& address, const PresenceTable::Row& row) {
    return Printable::of(address) + "  " + Printable::of(row.name.empty() ? "-" : row.name);
}

std::string responseText(const std::string& responseTime) {
    return responseTime.empty() ? "" : "  " + Printable::of(responseTime) + " ms";
}

bool bindLoopback(int fd, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

void Simulator::listen() {
    listener_ = host::UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener_) {
        throw std::runtime_error(std::string("cannot make a socket: ") + std::strerror(errno));
    }
    const int on = 1;
    ::setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    bool tookFreePort = false;
    if (!bindLoopback(listener_.get(), options_.port)) {
        const int error = errno;
        if (options_.port == 0 || error != EADDRINUSE || !bindLoopback(listener_.get(), 0)) {
            throw std::runtime_error("cannot listen on 127.0.0.1:" + std::to_string(options_.port) +
                                     ": " + std::strerror(error));
        }
        tookFreePort = true;
    }
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    if (::listen(listener_.get(), 1) != 0 ||
        ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
        throw std::runtime_error(std::string("cannot listen: ") + std::strerror(errno));
    }
    port_ = ntohs(bound.sin_port);
    watch(kListener, listener_.get(), [this](short) { acceptDriver(); });
    notice("listening on 127.0.0.1:" + std::to_string(port_) +
           (tookFreePort ? " (port " + std::to_string(options_.port) + " was busy)" : ""));
}

void Simulator::acceptDriver() {
    host::UniqueFd link(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!link) {
        return;
    }
    // The driver connects once; nobody else is let in.
    unwatch(kListener);
    listener_.reset();
    link_ = std::move(link);
    watch(kLink, link_.get(), [this](short events) { serveLink(events); });
    phase_ = Phase::Linked;
    connectBy_.reset();
    notice("the driver connected");
}

void Simulator::serveLink(short events) {
    if ((events & POLLOUT) != 0) {
        writeLink();
    }
    if (link_ && (events & (POLLIN | POLLHUP | POLLERR)) != 0) {
        readLink();
    }
}

bool Simulator::readLink() {
    std::array<char, kReadChunk> buffer;
    const ssize_t got = ::read(link_.get(), buffer.data(), buffer.size());
    if (got == 0) {
        linkLost("the driver closed the link");
        return false;
    }
    if (got < 0) {
        if (errno != EAGAIN && errno != EINTR) {
            linkLost(std::string("the link failed: ") + std::strerror(errno));
        }
        return false;
    }
    incoming_.append(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
    cutStream();
    return true;
}

void Simulator::writeLink() {
    while (!outgoing_.empty()) {
        const ssize_t sent =
            ::send(link_.get(), outgoing_.view().data(), outgoing_.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno != EAGAIN && errno != EINTR) {
                linkLost(std::string("the link failed: ") + std::strerror(errno));
                return;
            }
            break;
        }
        outgoing_.consume(static_cast<std::size_t>(sent));
    }
    host::EventPump::instance().setEvents(
        watches_[kLink], static_cast<short>(POLLIN | (outgoing_.empty() ? 0 : POLLOUT)));
}

bool Simulator::send(const std::string& bytes) {
    if (!link_) {
        notice("no link: nothing sent");
        return false;
    }
    outgoing_.append(bytes);
    writeLink();
    return true;
}

void Simulator::linkLost(const std::string& why) {
    notice(why);
    unwatch(kLink);
    link_.reset();
    outgoing_.clear();
    // A driver without its link ends on its own; it gets the same time as after "close".
    phase_ = Phase::Closing;
    giveTimeToEnd();
}

// First the greeting line, then multi-packets. Every length is checked against the bytes at
// hand, and no packet is longer than its 16-bit length field says, so the queue never holds
// more than one packet and one read.
void Simulator::cutStream() {
    for (;;) {
        const std::string_view pending = incoming_.view();
        if (!greeted_) {
            const std::size_t end = pending.substr(0, kMostGreetingBytes).find('\r');
            if (end == std::string_view::npos && pending.size() < kMostGreetingBytes) {
                return;
            }
            greeted_ = true;
            if (end != std::string_view::npos) {
                greeting(incoming_.take(end));
                incoming_.consume(1);
            } else {
                // What came is read as messages, so that a driver without a greeting still
                // shows what it sends.
                notice("stream: no greeting line in the first " +
                       std::to_string(kMostGreetingBytes) + " bytes");
            }
            continue;
        }
        if (pending.empty()) {
            return;
        }
        if (pending.front() != kLead) {
            // Out of step: skip to the next byte that could begin a packet.
            const std::size_t skip = std::min(pending.find(kLead, 1), pending.size());
            std::array<char, 8> first{};
            std::snprintf(first.data(), first.size(), "0x%02x",
                          static_cast<unsigned char>(pending[0]));
            incoming_.consume(skip);
            notice("stream: skipped " + std::to_string(skip) +
                   " bytes that begin no message (first " + first.data() + ")");
            continue;
        }
        if (pending.size() < 3) {
            return;
        }
        const std::size_t length = host::byteorder::load<2>(pending.data() + 1, true);
        if (length < kHeaderSize) {
            incoming_.consume(1);
            notice("stream: skipped a message whose length field is " + std::to_string(length));
            continue;
        }
        if (pending.size() < length) {
            return;
        }
        auto message = host::New<cAmbrelisCommand>();
        message->Constructor();
        if (message->initFromMultiPacket(host::String(incoming_.take(length)))) {
            handleMessage(*message);
        } else {
            notice("stream: a message that could not be read");
        }
    }
}

void Simulator::greeting(const std::string& line) {
    const std::string expected = "ard:" + options_.connectionId;
    if (line == expected) {
        notice("greeting " + Printable::of(line) + " ok");
    } else {
        notice("wrong greeting: expected \"" + Printable::of(expected + "\r") + "\", got \"" +
               Printable::of(line + "\r") + "\"");
    }
}

void Simulator::handleMessage(cAmbrelisCommand& message) {
    const host::String verb = message.GetMulti("mcmd");
    if (verb == "WrtL") {
        const std::string line = message.GetMulti("DATA").bytes();
        event("log: " + Printable::of(line));
        table_.addLog(line);
        clock_.logLine(now(), line);
    } else if (verb == "getUnits") {
        clock_.unitsAsked(now());
        send(setUnitsPacket_);
        notice("getUnits: sent setUnits with " + std::to_string(options_.units.units().size()) +
               " units (" + std::to_string(setUnitsPacket_.size()) + " bytes)");
    } else if (verb == "ON" || verb == "OFF") {
        reportPresence(message,
                       verb == "ON" ? PresenceTable::State::On : PresenceTable::State::Off);
    } else if (verb == "NoOp") {
        reportResponse(message);
    } else if (verb == "PSrp") {
        notice("ping answered (PSrp)" +
               (pingSentAt_ ? " after " + milliseconds(now() - *pingSentAt_) : std::string()));
        pingSentAt_.reset();
    } else {
        std::string pairs;
        const auto keys = message.GetKeys();
        for (std::int64_t i = 0; i < keys.Count(); ++i) {
            const std::string value = message.GetMulti(keys[i]).bytes();
            pairs += " " + Printable::of(keys[i].bytes()) + "=" +
                     Printable::of(value.substr(0, kMostShownValue)) +
                     (value.size() > kMostShownValue ? "..." : "");
        }
        notice("other message:" + (pairs.empty() ? std::string(" (no keys)") : pairs));
    }
}

void Simulator::reportPresence(cAmbrelisCommand& message, PresenceTable::State state) {
    const std::string address = message.GetMulti("addr").bytes();
    const bool update = message.GetMulti("UpDt") == "true";
    clock_.reported(now());
    const auto& row = table_.setState(address, state, now());
    event(std::string(state == PresenceTable::State::On ? "ON  " : "OFF ") + who(address, row) +
          responseText(row.responseTime) + (update ? "  (update)" : ""));
}

void Simulator::reportResponse(cAmbrelisCommand& message) {
    std::string ip;
    std::string responseTime;
    for (int n = 0; n < kMostProperties; ++n) {
        const host::String name = message.GetMulti("UPN" + host::Str(n));
        if (name.empty()) {
            break;
        }
        const host::String value = message.GetMulti("UPV" + host::Str(n));
        if (name == "IP") {
            ip = trimmed(value);
        } else if (name == "response time") {
            responseTime = trimmed(value);
        }
    }
    const std::string address = message.GetMulti("addr").bytes();
    clock_.reported(now());
    const auto& row = table_.setResponse(address, ip, responseTime);
    event("NoOp " + who(address, row) + responseText(responseTime) +
          (ip.empty() ? "" : "  IP " + Printable::of(ip)));
}

bool Simulator::readDriverOutput() {
    std::string got;
    const bool ended = driver_->readOutput(got, kReadChunk);
    const bool more = !ended && !got.empty();
    driverOutput_.append(std::move(got));
    for (std::size_t end; (end = driverOutput_.view().find('\n')) != std::string_view::npos;) {
        driverSays(driverOutput_.take(end));
        driverOutput_.consume(1);
    }
    if (driverOutput_.size() > kMostOutputLine) {
        driverSays(driverOutput_.take(driverOutput_.size()));
    }
    if (ended) {
        unwatch(kOutput);
        driver_->closeOutput();
    }
    return more;
}

void Simulator::driverSays(std::string line) {
    // The driver frames its direct lines with carriage returns.
    const std::string text = trimmed(host::ReplaceAll(host::String(std::move(line)), "\r", ""));
    if (!text.empty()) {
        notice("driver output: " + Printable::of(text));
    }
}

}  // namespace sim
