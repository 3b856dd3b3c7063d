#include "scan/NeighbourDump.h"

#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>

namespace {

// Netlink pads messages and attributes to 4 bytes. In size_t, so that a length near 4 GiB does
// not wrap to a small one as the C macros would.
constexpr std::size_t aligned(std::size_t length) {
    return (length + 3) & ~std::size_t{3};
}

// The bytes may sit at any address: copy instead of casting. The caller has checked the size.
template <typename T>
T readAt(std::string_view bytes, std::size_t at) {
    T value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

// The errno an error code stands for. Anything but a negative errno is none the kernel sends.
int errnoOf(int code) {
    return code < 0 && code != INT_MIN ? -code : EPROTO;
}

struct Attributes {
    std::optional<std::string_view> destination;
    std::optional<std::string_view> hardware;
    bool malformed = false;
};

// The attributes after a neighbour message's ndmsg; the first of each type counts.
Attributes attributesOf(std::string_view payload) {
    Attributes found;
    std::size_t at = aligned(sizeof(ndmsg));
    while (at < payload.size()) {
        const std::size_t left = payload.size() - at;
        if (left < sizeof(rtattr)) {
            found.malformed = true;
            break;
        }
        const auto attribute = readAt<rtattr>(payload, at);
        if (attribute.rta_len < sizeof(rtattr) || attribute.rta_len > left) {
            found.malformed = true;
            break;
        }
        const std::string_view value =
            payload.substr(at + sizeof(rtattr), attribute.rta_len - sizeof(rtattr));
        const unsigned type = attribute.rta_type & NLA_TYPE_MASK;
        if (type == NDA_DST && !found.destination) {
            found.destination = value;
        } else if (type == NDA_LLADDR && !found.hardware) {
            found.hardware = value;
        }
        at += aligned(attribute.rta_len);
    }
    return found;
}

std::uint32_t addressOf(std::string_view networkOrder) {
    std::uint32_t address = 0;
    for (const char byte : networkOrder) {
        address = (address << 8) | static_cast<unsigned char>(byte);
    }
    return address;
}

}  // namespace

NeighbourDump::Status NeighbourDump::take(std::string_view datagram) {
    std::size_t at = 0;
    while (status_ == Status::More && at < datagram.size()) {
        const std::string_view rest = datagram.substr(at);
        if (rest.size() < sizeof(nlmsghdr)) {
            cutShort_ = true;
            break;
        }
        const auto header = readAt<nlmsghdr>(rest, 0);
        if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > rest.size()) {
            cutShort_ = true;
            break;
        }
        if (header.nlmsg_seq == sequence_) {
            readMessage(header.nlmsg_type, header.nlmsg_flags,
                        rest.substr(sizeof(nlmsghdr), header.nlmsg_len - sizeof(nlmsghdr)));
        }
        at += aligned(header.nlmsg_len);
    }
    return status_;
}

void NeighbourDump::readMessage(std::uint16_t type, std::uint16_t flags, std::string_view payload) {
    if ((flags & NLM_F_DUMP_INTR) != 0) {
        interrupted_ = true;
    }
    switch (type) {
        case NLMSG_DONE: {
            // The end of a dump carries the dump's own error; kernels before 4.14 sent none.
            const int code = payload.size() >= sizeof(int) ? readAt<int>(payload, 0) : 0;
            if (code != 0) {
                fail(errnoOf(code));
            } else {
                status_ = interrupted_ ? Status::Interrupted : Status::Done;
            }
            break;
        }
        case NLMSG_ERROR: {
            // An error of 0 is an acknowledgement.
            const int code = payload.size() >= sizeof(int) ? readAt<int>(payload, 0) : INT_MIN;
            if (code != 0) {
                fail(errnoOf(code));
            }
            break;
        }
        case RTM_NEWNEIGH:
            readNeighbour(payload);
            break;
        default:
            break;
    }
}

void NeighbourDump::readNeighbour(std::string_view payload) {
    if (payload.size() < sizeof(ndmsg)) {
        cutShort_ = true;
        return;
    }
    const auto neighbour = readAt<ndmsg>(payload, 0);
    if (neighbour.ndm_family != AF_INET) {
        return;
    }
    const Attributes attributes = attributesOf(payload);
    if (attributes.malformed) {
        cutShort_ = true;
        return;
    }
    if (!attributes.destination || attributes.destination->size() != 4) {
        return;
    }
    entries_.push_back({addressOf(*attributes.destination),
                        std::string(attributes.hardware.value_or(std::string_view{})),
                        neighbour.ndm_state, neighbour.ndm_ifindex});
}

void NeighbourDump::fail(int error) {
    error_ = error;
    status_ = Status::Failed;
}
