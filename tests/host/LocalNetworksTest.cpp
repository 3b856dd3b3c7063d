#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "FakeNetwork.h"
#include "host/ConsoleApplication.h"
#include "host/Ref.h"
#include "host/SystemTools.h"

namespace {

using namespace host::LocalNetworks;
using Texts = std::vector<std::string>;

// Each range as "first-last".
Texts texts(const std::vector<Range>& ranges) {
    Texts out;
    for (const Range& range : ranges) {
        out.push_back(dotted(range.first) + "-" + dotted(range.last));
    }
    return out;
}

// The lans of the list getifaddrs() would give for interfaces of these flags, addresses (IPv6
// when it holds a colon) and masks (none when null).
std::vector<Lan> lansOf(const std::vector<std::tuple<unsigned, const char*, const char*>>& rows) {
    std::vector<ifaddrs> entries(rows.size());
    std::vector<sockaddr_in6> addresses(rows.size() * 2);
    auto store = [&](std::size_t k, const char* text) -> sockaddr* {
        auto* address = reinterpret_cast<sockaddr_in*>(&addresses[k]);
        address->sin_family = std::strchr(text, ':') ? AF_INET6 : AF_INET;
        ::inet_pton(address->sin_family, text,
                    address->sin_family == AF_INET ? static_cast<void*>(&address->sin_addr)
                                                   : &addresses[k].sin6_addr);
        return reinterpret_cast<sockaddr*>(address);
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto& [flags, address, mask] = rows[i];
        entries[i].ifa_flags = flags;
        entries[i].ifa_addr = store(2 * i, address);
        entries[i].ifa_netmask = mask != nullptr ? store(2 * i + 1, mask) : nullptr;
        entries[i].ifa_next = i + 1 < rows.size() ? &entries[i + 1] : nullptr;
    }
    return host::LocalNetworks::lansOf(rows.empty() ? nullptr : entries.data());
}

TEST(LocalNetworksTest, OnlyLansThatDoArpAreFilledEveryAddressOnceInBlocks) {
    constexpr unsigned kUp = IFF_UP | IFF_BROADCAST;
    const std::vector<Lan> lans = lansOf({
        {IFF_UP | IFF_LOOPBACK, "127.0.0.1", "255.0.0.0"},
        {kUp, "192.168.1.20", "255.255.255.0"},
        {kUp, "192.168.1.21", "255.255.255.0"},        // the same LAN again
        {IFF_BROADCAST, "10.1.0.1", "255.255.255.0"},  // down
        {IFF_UP | IFF_POINTOPOINT, "10.8.0.2", "255.255.255.0"},
        {kUp | IFF_NOARP, "10.9.0.1", "255.255.255.0"},
        {kUp, "172.17.0.1", "255.255.0.0"},   // too wide
        {kUp, "10.10.0.1", "255.255.0.255"},  // no subnet
        {kUp, "fe80::1", "ffff:ffff:ffff:ffff::"},
        {kUp, "10.11.0.1", nullptr},
        {kUp, "10.20.1.7", "255.255.252.0"},
        {kUp, "10.30.0.1", "255.255.255.254"},
        {kUp, "10.40.0.1", "255.255.255.255"},
    });
    EXPECT_EQ(lans, (std::vector<Lan>{
                        {0xC0A80100, 24}, {0x0A140000, 22}, {0x0A1E0000, 31}, {0x0A280001, 32}}));
    // Neither network nor broadcast address, but both of a /31; nobody beside a /32.
    EXPECT_EQ(texts(fillRanges(lans)),
              (Texts{"192.168.1.1-192.168.1.254", "10.20.0.1-10.20.1.0", "10.20.1.1-10.20.2.0",
                     "10.20.2.1-10.20.3.0", "10.20.3.1-10.20.3.254", "10.30.0.0-10.30.0.1"}));
    EXPECT_TRUE(lansOf({}).empty());
}

// The fake fping's runs, sorted, as they ran side by side, once the fill has no child left.
Texts fill(const testsupport::FakeNetwork& network, host::Shell& shell, std::vector<Lan> lans) {
    host::SystemTools::fillNeighbours(shell, fillRanges(lans));
    for (int turn = 0; turn < 500 && shell.IsRunning(); ++turn) {
        host::ConsoleApplication::DoEvents(10);
    }
    EXPECT_FALSE(shell.IsRunning());
    Texts calls = network.fillCalls();
    std::sort(calls.begin(), calls.end());
    network.forgetCalls();
    return calls;
}

// A block of each range, at one request every `interval` ms.
Texts calls(const char* interval, const Texts& ranges) {
    Texts out;
    for (const std::string& range : ranges) {
        const std::size_t dash = range.find('-');
        out.push_back(std::string("[-q][-r][0][-t][50][-i][") + interval + "][-g][" +
                      range.substr(0, dash) + "][" + range.substr(dash + 1) + "]");
    }
    return out;
}

TEST(FillTest, EveryBlockRunsAtOnceMoreThan768AddressesArePacedAndALateFillIsEnded) {
    testsupport::FakeNetwork network;
    auto shell = host::New<host::Shell>();
    EXPECT_EQ(fill(network, *shell, {{0x0A000000, 23}, {0x0A010000, 24}}),
              calls("1", {"10.0.0.1-10.0.1.0", "10.0.1.1-10.0.1.254", "10.1.0.1-10.1.0.254"}));
    // Four tools at one request every 16 ms are one request every 4 ms.
    EXPECT_EQ(fill(network, *shell, {{0x0A000000, 22}}),
              calls("16", {"10.0.0.1-10.0.1.0", "10.0.1.1-10.0.2.0", "10.0.2.1-10.0.3.0",
                           "10.0.3.1-10.0.3.254"}));
    EXPECT_TRUE(fill(network, *shell, {}).empty());
    // A fill still running when the next starts is ended by it.
    std::ofstream(network.folder() + "/fping-sleep") << "30\n";
    host::SystemTools::fillNeighbours(*shell, fillRanges({{0x0A000000, 24}}));
    for (int turn = 0; turn < 500 && network.fillCalls().empty(); ++turn) {
        host::ConsoleApplication::DoEvents(10);
    }
    std::filesystem::remove(network.folder() + "/fping-sleep");
    EXPECT_EQ(fill(network, *shell, {{0xC0A80700, 24}}),
              calls("1", {"10.0.0.1-10.0.0.254", "192.168.7.1-192.168.7.254"}));
}

}  // namespace
