#include "scan/LocalNetworks.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>

namespace LocalNetworks {

namespace {

std::uint32_t addressOf(const sockaddr* address) {
    return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr);
}

}  // namespace

std::vector<Lan> lansOf(const ifaddrs* interfaces) {
    constexpr unsigned kNotALan = IFF_LOOPBACK | IFF_POINTOPOINT | IFF_NOARP;
    std::vector<Lan> lans;
    for (const ifaddrs* entry = interfaces; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_netmask == nullptr ||
            entry->ifa_addr->sa_family != AF_INET || (entry->ifa_flags & IFF_UP) == 0 ||
            (entry->ifa_flags & kNotALan) != 0) {
            continue;
        }
        const std::uint32_t mask = addressOf(entry->ifa_netmask);
        const int prefix = std::popcount(mask);
        // A mask with holes is no subnet anyone fills.
        if (prefix < kWidestPrefix || std::countl_one(mask) != prefix) {
            continue;
        }
        const Lan lan{addressOf(entry->ifa_addr) & mask, prefix};
        if (std::find(lans.begin(), lans.end(), lan) == lans.end()) {
            lans.push_back(lan);
        }
    }
    return lans;
}

std::vector<Lan> current() {
    ifaddrs* interfaces = nullptr;
    if (::getifaddrs(&interfaces) != 0) {
        return {};
    }
    std::vector<Lan> lans = lansOf(interfaces);
    ::freeifaddrs(interfaces);
    return lans;
}

std::vector<Range> fillRanges(const std::vector<Lan>& lans) {
    std::vector<Range> ranges;
    for (const Lan& lan : lans) {
        if (lan.prefix >= 32) {
            continue;
        }
        const std::uint32_t hostBits = ~std::uint32_t{0} >> lan.prefix;
        std::uint32_t first = lan.network;
        std::uint32_t last = lan.network | hostBits;
        if (lan.prefix < 31) {
            ++first;
            --last;
        }
        for (std::uint64_t from = first; from <= last; from += kBlockSize) {
            const auto to =
                static_cast<std::uint32_t>(std::min<std::uint64_t>(from + kBlockSize - 1, last));
            ranges.push_back({static_cast<std::uint32_t>(from), to});
        }
    }
    return ranges;
}

std::string dotted(std::uint32_t address) {
    // Once for every entry of the neighbour table a sweep reads: no string per group.
    std::array<char, 16> text{};
    char* at = text.data();
    for (int shift = 24; shift >= 0; shift -= 8) {
        at = std::to_chars(at, text.data() + text.size(), (address >> shift) & 0xffU).ptr;
        if (shift != 0) {
            *at++ = '.';
        }
    }
    return {text.data(), at};
}

}  // namespace LocalNetworks
