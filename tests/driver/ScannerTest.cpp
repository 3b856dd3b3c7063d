#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "ScanFixture.h"
#include "host/LocalNetworks.h"

namespace {

using testsupport::multiPacket;

class ScannerTest : public ScanFixture {
protected:
    std::vector<std::string> keys() {
        std::vector<std::string> texts;
        for (const auto& key : hosts().Keys()) {
            texts.push_back(key.isString() ? key.stringValue().bytes()
                                           : std::to_string(static_cast<int>(key.doubleValue())));
        }
        return texts;
    }

    bool pinged(const std::string& address) {
        const auto calls = network.pingCalls();
        return std::find(calls.begin(), calls.end(),
                         testsupport::FakeNetwork::probeCall(address)) != calls.end();
    }

    host::Ref<cDevice> unitHost(const std::string& address, double id) {
        auto unit = host::New<CXML>();
        unit->Constructor();
        unit->SetStringValue("Address", host::String(address));
        unit->SetDoubleValue("uniqueid", id);
        auto device = host::New<cDevice>();
        device->loadFromAmbrelisUnit(unit);
        return device;
    }

    static host::Ref<host::Date> secondsAgo(double seconds) {
        return host::New<host::Date>(host::Date().TotalSeconds() - seconds);
    }
};

TEST_F(ScannerTest, FirstPassKeepsOneHostPerPrintedHardwareAddress) {
    network.setArpTable(
        "Address HWtype HWaddress Flags Mask Iface\n"
        "? (10.0.0.1) at 02:00:00:00:00:01 [ether] on eth0\n"
        "? (10.0.0.2) at <incomplete> on eth0\n"
        "? (10.0.0.255) at ff:ff:ff:ff:ff:ff [ether] on eth0\n"
        "? (10.0.0.3) at 2:0:0:0:0:3 [ether] on eth0\r\n"
        "? (10.0.0.4) at 02:00:00:00:00:03 [ether] on eth0\n"
        "? (10.0.0.5) at 02:00:00:00:00:01 [ether] on eth0\n"
        "? (10.0.0.6) at 02:00:00:00:00:0A [ether] on eth0\n"
        "? (10.0.0.7) at 02:00:00:00:00:0a [ether] PERM on eth0\n"
        "? (10.0.0.8) at de:ad:be:ef:00:08\n");
    Globals::DebugMode = true;
    Globals::gScanner->DoScan();
    const auto sent = settle();

    // A group printed with one digit is another key; letter case is not.
    EXPECT_EQ(keys(),
              (std::vector<std::string>{"02:00:00:00:00:01", "2:0:0:0:0:3", "02:00:00:00:00:03",
                                        "02:00:00:00:00:0A", "de:ad:be:ef:00:08"}));
    EXPECT_EQ(hosts().Value("02:00:00:00:00:01")->MyIPAddress.bytes(), "10.0.0.5");
    EXPECT_EQ(hosts().Value("02:00:00:00:00:0A")->MyMacAddress.bytes(), "02:00:00:00:00:0a");
    EXPECT_EQ(network.pingCalls().front(), testsupport::FakeNetwork::kBroadcastCall);
    for (const char* address : {"10.0.0.5", "10.0.0.3", "10.0.0.4", "10.0.0.7", "10.0.0.8"}) {
        EXPECT_TRUE(pinged(address)) << address;
    }
    EXPECT_EQ(network.pingCalls().size(), 6u);
    // Every block of this machine's LANs is asked for, from the fake of the fill tool.
    const std::size_t blocks =
        host::LocalNetworks::fillRanges(host::LocalNetworks::current()).size();
    for (int turn = 0; turn < 200 && network.fillCalls().size() < blocks; ++turn) {
        host::ConsoleApplication::DoEvents(10);
    }
    EXPECT_EQ(network.fillCalls().size(), blocks);

    std::vector<std::string> parsed;
    for (const std::string& message : sent) {
        if (message.find("DATA=arp line (") != std::string::npos ||
            message.find("DATA=begin") != std::string::npos) {
            parsed.push_back(message.substr(message.find("Valu=")));
        }
    }
    ASSERT_EQ(parsed.size(), 8u);
    EXPECT_EQ(parsed[0], "Valu=1 DATA=begin arp scan");
    EXPECT_EQ(
        parsed[2],
        "Valu=2 DATA=arp line (? (10.0.0.3) at 2:0:0:0:0:3 on eth0) parsed MAC (2:0:0:0:0:3)");
}

struct DueRow {
    const char* name;
    bool arp;
    bool available;
    std::optional<double> lastGoodAgo;
    std::optional<double> lastPingAgo;
    bool pinged;
    bool kept;
};

TEST_F(ScannerTest, SecondPassPingsWhatIsDueAndForgetsLongSilentArpHosts) {
    const std::vector<DueRow> rows = {
        {"arp host silent for over an hour", true, false, 3601, 30, true, false},
        {"arp host silent for less", true, false, 3500, 30, true, true},
        {"arp host that never answered", true, false, {}, 30, true, true},
        {"arp host still ON", true, true, 4000, 30, true, true},
        {"unit host never pinged", false, false, {}, {}, true, true},
        {"present unit host, 301 s", false, true, 301, 301, true, true},
        {"present unit host, 299 s", false, true, 299, 299, false, true},
        {"absent unit host", false, false, {}, 5, true, true},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const DueRow& row = rows[i];
        const std::string ip = "10.2.0." + std::to_string(i);
        auto device = row.arp ? arpHost(ip, "02:00:00:00:02:" + std::to_string(i))
                              : unitHost(ip, static_cast<double>(i));
        device->available = row.available;
        device->firstScan = false;
        if (row.lastGoodAgo) {
            device->LastGoodPing = secondsAgo(*row.lastGoodAgo);
        }
        if (row.lastPingAgo) {
            device->lastPing = secondsAgo(*row.lastPingAgo);
        }
    }
    Globals::DebugMode = true;
    Globals::gScanner->DoScan();
    const auto sent = settle();
    const auto remaining = keys();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const DueRow& row = rows[i];
        const std::string key = row.arp ? "02:00:00:00:02:" + std::to_string(i) : std::to_string(i);
        EXPECT_EQ(pinged("10.2.0." + std::to_string(i)), row.pinged) << row.name;
        EXPECT_EQ(std::count(remaining.begin(), remaining.end(), key), row.kept ? 1 : 0)
            << row.name;
    }
    // A unit host's ping is announced twice, with two blanks by the sweep and one by the ping.
    const auto announced =
        std::find(sent.begin(), sent.end(), "mcmd=WrtL Valu=2 DATA=pinging remote host:  10.2.0.4");
    ASSERT_NE(announced, sent.end());
    EXPECT_EQ(*(announced + 1), "mcmd=WrtL Valu=2 DATA=pinging remote host: 10.2.0.4");
}

// Waiting for a free ping slot pumps; a deletion handled there must not trip the pass.
TEST_F(ScannerTest, AKeyDeletedDuringTheSweepIsSkipped) {
    for (int id = 1; id <= 8; ++id) {
        const std::string ip = "10.3.0." + std::to_string(id);
        network.answer(ip, "slow 0.2");
        unitHost(ip, id);
    }
    server.send(multiPacket({{"mcmd", "UnitDeleted"}, {"UnID", "8"}, {"addr", "10.3.0.8"}}));
    Globals::gScanner->DoScan();
    const auto sent = settle();
    EXPECT_FALSE(hosts().HasKey(8.0));
    EXPECT_TRUE(pinged("10.3.0.7"));
    EXPECT_FALSE(pinged("10.3.0.8"));
    EXPECT_NE(std::find(sent.begin(), sent.end(),
                        "mcmd=WrtL Valu=2 DATA=pings will no longer be sent to: 10.3.0.8"),
              sent.end());
}

}  // namespace
