#include "EchoResponder.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

#include "InNamespace.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint8_t kEchoReply = 0;
constexpr std::uint8_t kEchoRequest = 8;

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
    stop_ = ::eventfd(0, EFD_CLOEXEC);
    if (socket_ >= 0 && stop_ >= 0) {
        thread_ = std::thread([this] { serve(); });
    }
}

EchoResponder::~EchoResponder() {
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        (void)::write(stop_, &one, sizeof one);
        thread_.join();
    }
    for (int fd : {socket_, stop_}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

void EchoResponder::serve() {
    std::deque<Reply> pending;
    int requests = 0;
    for (;;) {
        int wait = -1;
        if (!pending.empty()) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(pending.front().due - Clock::now());
            wait = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
        }
        std::array<pollfd, 2> fds{{{socket_, POLLIN, 0}, {stop_, POLLIN, 0}}};
        if (::poll(fds.data(), fds.size(), wait) < 0 || fds[1].revents != 0) {
            return;
        }
        while (!pending.empty() && pending.front().due <= Clock::now()) {
            const Reply& reply = pending.front();
            ::sendto(socket_, reply.message.data(), reply.message.size(), 0,
                     reinterpret_cast<const sockaddr*>(&reply.to), sizeof reply.to);
            pending.pop_front();
        }
        if (fds[0].revents == 0) {
            continue;
        }
        std::array<std::uint8_t, 2048> packet{};
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t size = ::recvfrom(socket_, packet.data(), packet.size(), 0,
                                        reinterpret_cast<sockaddr*>(&from), &length);
        // A raw socket gets the IP header too.
        const std::size_t header = size > 0 ? std::size_t{packet[0] & 0x0fU} * 4 : 0;
        if (size <= 0 || static_cast<std::size_t>(size) < header + 8 ||
            packet[header] != kEchoRequest || requests++ < behaviour_.lostFirst) {
            continue;
        }
        std::vector<std::uint8_t> message(packet.begin() + static_cast<std::ptrdiff_t>(header),
                                          packet.begin() + size);
        message[0] = kEchoReply;
        message[2] = message[3] = 0;
        const std::uint16_t sum = checksum(message);
        message[2] = static_cast<std::uint8_t>(sum >> 8);
        message[3] = static_cast<std::uint8_t>(sum & 0xff);
        pending.push_back({Clock::now() + behaviour_.delay, from, std::move(message)});
    }
}
