#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "FakeNetwork.h"
#include "host/EventPump.h"
#include "host/Ref.h"
#include "host/Shell.h"
#include "scan/LocalNetworks.h"
#include "scan/SystemTools.h"

namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

// The lans of the list getifaddrs() would give for interfaces of these flags, addresses (IPv6
// when it holds a colon) and masks (none when null).
std::vector<LocalNetworks::Lan> lansOf(
    const std::vector<std::tuple<unsigned, const char*, const char*>>& rows) {
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
    return LocalNetworks::lansOf(rows.empty() ? nullptr : entries.data());
}

TEST(LocalNetworksTest, OnlyLansThatDoArpAreFilledEveryAddressOnceInBlocks) {
    constexpr unsigned kUp = IFF_UP | IFF_BROADCAST;
    // Loopback, the same LAN again, down, point-to-point, no ARP, too wide, no subnet, IPv6, no
    // mask: none of these.
    const std::vector<LocalNetworks::Lan> lans =
        lansOf({{IFF_UP | IFF_LOOPBACK, "127.0.0.1", "255.0.0.0"},
                {kUp, "192.168.1.20", "255.255.255.0"},
                {kUp, "192.168.1.21", "255.255.255.0"},
                {IFF_BROADCAST, "10.1.0.1", "255.255.255.0"},
                {IFF_UP | IFF_POINTOPOINT, "10.8.0.2", "255.255.255.0"},
                {kUp | IFF_NOARP, "10.9.0.1", "255.255.255.0"},
                {kUp, "172.17.0.1", "255.255.0.0"},
                {kUp, "10.10.0.1", "255.255.0.255"},
                {kUp, "fe80::1", "ffff:ffff:ffff:ffff::"},
                {kUp, "10.11.0.1", nullptr},
                {kUp, "10.20.1.7", "255.255.252.0"},
                {kUp, "10.30.0.1", "255.255.255.254"},
                {kUp, "10.40.0.1", "255.255.255.255"}});
    EXPECT_EQ(lans, (std::vector<LocalNetworks::Lan>{
                        {0xC0A80100, 24}, {0x0A140000, 22}, {0x0A1E0000, 31}, {0x0A280001, 32}}));
    // Neither network nor broadcast address, but both of a /31; nobody beside a /32.
    // clang-format off
    EXPECT_EQ(LocalNetworks::fillRanges(lans), (std::vector<LocalNetworks::Range>{
        {0xC0A80101, 0xC0A801FE}, {0x0A140001, 0x0A140100}, {0x0A140101, 0x0A140200},
        {0x0A140201, 0x0A140300}, {0x0A140301, 0x0A1403FE}, {0x0A1E0000, 0x0A1E0001}}));
    // clang-format on
    EXPECT_TRUE(lansOf({}).empty());
}

// The fake fping's runs, sorted, as they ran side by side, once the fill has no child left, and
// how long the fill was planned to take.
std::pair<Texts, std::chrono::milliseconds> fill(const testsupport::FakeNetwork& network,
                                                 host::Shell& shell, host::Shell& broadcast,
                                                 const std::vector<LocalNetworks::Lan>& lans) {
    const auto planned = SystemTools::startFill(shell, broadcast, LocalNetworks::fillRanges(lans));
    const auto running = [&] { return shell.IsRunning() || broadcast.IsRunning(); };
    host::EventPump::instance().runUntil(10000, [&] { return !running(); });
    EXPECT_FALSE(running());
    Texts calls = network.fillCalls();
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(network.pingCalls(), Texts{testsupport::FakeNetwork::kBroadcastCall});
    network.forgetCalls();
    return {calls, planned};
}

// Four tools at one request every 16 ms are one request every 4 ms; up to 768 addresses go at
// full speed. The broadcast goes with every fill. A fill still running when the next starts is
// ended by it.
TEST(NeighbourFillTest, RunsEveryBlockAtOncePacesBigLansAndEndsALateFill) {
    testsupport::FakeNetwork network;
    auto shell = host::New<host::Shell>(), broadcast = host::New<host::Shell>();
    const auto [paced, pacedPlan] = fill(network, *shell, *broadcast, {{0x0A000000, 22}});
    EXPECT_EQ(std::pair(paced.size(), paced[3]),
              std::pair(4ul, std::string("[-q][-r][0][-t][50][-i][16][-g][10.0.3.1][10.0.3.254]")));
    EXPECT_EQ(pacedPlan, 256 * 16ms + 50ms);
    std::ofstream(network.folder() + "/fill-sleep") << "30\n";
    SystemTools::startFill(*shell, *broadcast, LocalNetworks::fillRanges({{0x0A000000, 23}}));
    for (int turn = 0; turn < 500 && network.fillCalls().size() + network.pingCalls().size() < 3;
         ++turn) {
        host::EventPump::instance().run(10);
    }
    std::filesystem::remove(network.folder() + "/fill-sleep");
    network.forgetCalls();
    EXPECT_EQ(fill(network, *shell, *broadcast, {{0xC0A80700, 24}, {0x0A000000, 23}}),
              std::pair(Texts{"[-q][-r][0][-t][50][-i][1][-g][10.0.0.1][10.0.1.0]",
                              "[-q][-r][0][-t][50][-i][1][-g][10.0.1.1][10.0.1.254]",
                              "[-q][-r][0][-t][50][-i][1][-g][192.168.7.1][192.168.7.254]"},
                        256 * 1ms + 50ms));
    EXPECT_EQ(fill(network, *shell, *broadcast, {}), std::pair(Texts{}, 0ms));
}

// ping's 1 means some replies only when there were any, however many; other codes stay; the
// summary line reads as the BSD one.
TEST(ProbeOutcomeTest, OneReplyOfTwoIsAnAnswerAndOtherCodesStay) {
    const std::tuple<std::int64_t, const char*, std::int64_t> rows[] = {
        {137, "packets transmitted, 1 received", 137},
        {1, "packets transmitted, 99999999999999999999", 0},
        {1, "2 packets transmitted, 0 received", 1},
        {1, "2 packets transmitted, 01 received", 0},
        {0, "rtt min/avg/max/mdev = 1/2/3/4 ms", 0}};
    for (const auto& [code, output, expected] : rows) {
        EXPECT_EQ(SystemTools::probeOutcome(code, host::String(output)).exitCode, expected)
            << output;
    }
    EXPECT_EQ(SystemTools::probeOutcome(0, host::String("x\nrtt min/avg/max/mdev = 1/2/3/4 ms\n"))
                  .output.bytes(),
              "x\nround-trip min/avg/max/stddev = 1/2/3/4 ms\n");
}

}  // namespace
