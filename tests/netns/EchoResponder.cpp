#include "EchoResponder.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

#include "InNamespace.h"

namespace {

using Clock = std::chrono::steady_clock;

std::uint16_t checksum(const std::vector<std::uint8_t>& bytes) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        sum +=
            static_cast<std::uint32_t>(bytes[i] << 8) + (i + 1 < bytes.size() ? bytes[i + 1] : 0);
    }
    while ((sum >> 16) != 0) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

struct Reply {
    Clock::time_point due;
    sockaddr_in to;
    std::vector<std::uint8_t> message;
};

}  // namespace

EchoResponder::EchoResponder(const std::string& namespacePath, Behaviour behaviour)
    : behaviour_(behaviour) {
    {
        // A socket belongs to the namespace it was made in, whichever thread uses it.
        InNamespace inHost(namespacePath);
        if (inHost.entered()) {
            socket_ = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
        }
    }
    if (socket_ >= 0) {
        thread_ = std::thread([this] { serve(); });
    }
}

EchoResponder::~EchoResponder() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    if (socket_ >= 0) {
        ::close(socket_);
    }
}

void EchoResponder::serve() {
    std::deque<Reply> pending;
    int requests = 0;
    while (!stop_) {
        while (!pending.empty() && pending.front().due <= Clock::now()) {
            const Reply& reply = pending.front();
            ::sendto(socket_, reply.message.data(), reply.message.size(), 0,
                     reinterpret_cast<const sockaddr*>(&reply.to), sizeof reply.to);
            pending.pop_front();
        }
        // Short waits: late replies are due within a few milliseconds of their time.
        pollfd entry{socket_, POLLIN, 0};
        if (::poll(&entry, 1, 5) <= 0) {
            continue;
        }
        std::array<std::uint8_t, 2048> packet{};
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t size = ::recvfrom(socket_, packet.data(), packet.size(), 0,
                                        reinterpret_cast<sockaddr*>(&from), &length);
        // A raw socket gets the IP header too; 8 is an echo request, 0 its reply.
        const std::size_t header = size > 0 ? std::size_t{packet[0] & 0x0fU} * 4 : 0;
        if (size <= 0 || static_cast<std::size_t>(size) < header + 8 || packet[header] != 8 ||
            requests++ < behaviour_.lostFirst) {
            continue;
        }
        std::vector<std::uint8_t> message(packet.begin() + static_cast<std::ptrdiff_t>(header),
                                          packet.begin() + size);
        message[0] = message[2] = message[3] = 0;
        const std::uint16_t sum = checksum(message);
        message[2] = static_cast<std::uint8_t>(sum >> 8);
        message[3] = static_cast<std::uint8_t>(sum & 0xff);
        pending.push_back({Clock::now() + behaviour_.delay, from, std::move(message)});
    }
}
