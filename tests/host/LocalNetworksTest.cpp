#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "host/ConsoleApplication.h"
#include "host/LocalNetworks.h"
#include "host/Ref.h"
#include "host/Shell.h"
#include "host/SystemTools.h"

namespace {

using host::LocalNetworks::Lan;
using host::LocalNetworks::Range;

struct Interface {
    unsigned flags;
    const char* address;  // IPv6 when it holds a colon
    const char* mask;     // none when null
};

std::uint32_t ipv4(const char* dotted) {
    in_addr address{};
    ::inet_pton(AF_INET, dotted, &address);
    return ntohl(address.s_addr);
}

// The list getifaddrs() would give for these interfaces.
class InterfaceList {
public:
    explicit InterfaceList(const std::vector<Interface>& interfaces)
        : entries_(interfaces.size()), addresses_(interfaces.size() * 2) {
        for (std::size_t i = 0; i < interfaces.size(); ++i) {
            ifaddrs& entry = entries_[i];
            entry.ifa_flags = interfaces[i].flags;
            entry.ifa_addr = store(addresses_[2 * i], interfaces[i].address);
            entry.ifa_netmask = interfaces[i].mask != nullptr
                                    ? store(addresses_[2 * i + 1], interfaces[i].mask)
                                    : nullptr;
            entry.ifa_next = i + 1 < interfaces.size() ? &entries_[i + 1] : nullptr;
        }
    }
    const ifaddrs* first() const { return entries_.empty() ? nullptr : entries_.data(); }

private:
    static sockaddr* store(sockaddr_in6& into, const char* text) {
        auto* address = reinterpret_cast<sockaddr*>(&into);
        if (std::string(text).find(':') != std::string::npos) {
            into.sin6_family = AF_INET6;
            ::inet_pton(AF_INET6, text, &into.sin6_addr);
        } else {
            auto* v4 = reinterpret_cast<sockaddr_in*>(&into);
            v4->sin_family = AF_INET;
            ::inet_pton(AF_INET, text, &v4->sin_addr);
        }
        return address;
    }

    std::vector<ifaddrs> entries_;
    std::vector<sockaddr_in6> addresses_;
};

TEST(LocalNetworksTest, OnlyLansThatDoArpAreFilledEveryAddressOnceInBlocks) {
    constexpr unsigned kUp = IFF_UP | IFF_BROADCAST;
    const InterfaceList list({
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
    const std::vector<Lan> lans = host::LocalNetworks::lansOf(list.first());
    EXPECT_EQ(lans, (std::vector<Lan>{{ipv4("192.168.1.0"), 24},
                                      {ipv4("10.20.0.0"), 22},
                                      {ipv4("10.30.0.0"), 31},
                                      {ipv4("10.40.0.1"), 32}}));
    // Neither network nor broadcast address, but both of a /31; nobody beside a /32.
    EXPECT_EQ(host::LocalNetworks::fillRanges(lans),
              (std::vector<Range>{{ipv4("192.168.1.1"), ipv4("192.168.1.254")},
                                  {ipv4("10.20.0.1"), ipv4("10.20.1.0")},
                                  {ipv4("10.20.1.1"), ipv4("10.20.2.0")},
                                  {ipv4("10.20.2.1"), ipv4("10.20.3.0")},
                                  {ipv4("10.20.3.1"), ipv4("10.20.3.254")},
                                  {ipv4("10.30.0.0"), ipv4("10.30.0.1")}}));
    EXPECT_TRUE(host::LocalNetworks::lansOf(nullptr).empty());
}

class FillTest : public ::testing::Test {
protected:
    // Pumps until the fill has no child left; the tool's runs, sorted, as they ran side by side.
    std::vector<std::string> settle() {
        for (int turn = 0; turn < 500 && fill->IsRunning(); ++turn) {
            host::ConsoleApplication::DoEvents(10);
        }
        std::vector<std::string> calls = network.fillCalls();
        std::sort(calls.begin(), calls.end());
        network.forgetCalls();
        return calls;
    }

    static std::string call(const char* interval, const char* first, const char* last) {
        return std::string("[-q][-r][0][-t][50][-i][") + interval + "][-g][" + first + "][" + last +
               "]";
    }

    void fillLans(const std::vector<Lan>& lans) {
        host::SystemTools::fillNeighbours(*fill, host::LocalNetworks::fillRanges(lans));
    }

    testsupport::FakeNetwork network;
    host::Ref<host::Shell> fill = host::New<host::Shell>();
};

TEST_F(FillTest, EveryBlockRunsAtOnceAndMoreThan768AddressesArePaced) {
    fillLans({{ipv4("10.0.0.0"), 23}, {ipv4("10.1.0.0"), 24}});
    EXPECT_EQ(settle(), (std::vector<std::string>{call("1", "10.0.0.1", "10.0.1.0"),
                                                  call("1", "10.0.1.1", "10.0.1.254"),
                                                  call("1", "10.1.0.1", "10.1.0.254")}));
    // Four tools at one request every 16 ms are one request every 4 ms.
    fillLans({{ipv4("10.0.0.0"), 22}});
    EXPECT_EQ(settle(),
              (std::vector<std::string>{
                  call("16", "10.0.0.1", "10.0.1.0"), call("16", "10.0.1.1", "10.0.2.0"),
                  call("16", "10.0.2.1", "10.0.3.0"), call("16", "10.0.3.1", "10.0.3.254")}));
    fillLans({});
    EXPECT_TRUE(settle().empty());
}

TEST_F(FillTest, AFillStillRunningAtTheNextIsEnded) {
    std::ofstream(network.folder() + "/fping-sleep") << "30\n";
    fillLans({{ipv4("10.0.0.0"), 24}});
    for (int turn = 0; turn < 500 && network.fillCalls().empty(); ++turn) {
        host::ConsoleApplication::DoEvents(10);
    }
    std::filesystem::remove(network.folder() + "/fping-sleep");
    fillLans({{ipv4("192.168.7.0"), 24}});
    EXPECT_EQ(settle(), (std::vector<std::string>{call("1", "10.0.0.1", "10.0.0.254"),
                                                  call("1", "192.168.7.1", "192.168.7.254")}));
}

}  // namespace
