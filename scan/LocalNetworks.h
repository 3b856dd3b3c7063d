#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct ifaddrs;

// The IPv4 LANs this machine sits on, read from its interfaces, and the addresses of each that
// a neighbour fill asks for. Addresses are numbers in host byte order.
namespace LocalNetworks {

struct Lan {
    std::uint32_t network;
    int prefix;

    bool operator==(const Lan&) const = default;
};

struct Range {
    std::uint32_t first;
    std::uint32_t last;

    std::uint64_t size() const { return std::uint64_t{last} - first + 1; }
    bool operator==(const Range&) const = default;
};

// Shortest prefix that counts as a LAN: 1,022 addresses. A larger subnet (a container bridge, a
// campus /16) would make thousands of neighbour entries every sweep.
constexpr int kWidestPrefix = 22;
// One fping per block: the requests that wait for address resolution count against the
// sender's socket buffer, which holds about 512 of them.
constexpr std::uint64_t kBlockSize = 256;

// Each LAN once, in the order of the list: IPv4 on an interface that is up and does ARP, not
// loopback, not point-to-point, with a prefix from kWidestPrefix to 32.
std::vector<Lan> lansOf(const ifaddrs* interfaces);
// The same for this machine now; none when the interfaces cannot be read.
std::vector<Lan> current();

// Every address of the LANs but their network and broadcast addresses (which a /31 has not), in
// blocks of at most kBlockSize; a /32 has no neighbour and gives none.
std::vector<Range> fillRanges(const std::vector<Lan>& lans);

std::string dotted(std::uint32_t address);

}  // namespace LocalNetworks
