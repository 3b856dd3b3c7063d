#include <sys/syscall.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

#include "DriverFixture.h"
#include "scan/LocalNetworks.h"
#include "store/UnitListRecord.h"
#include "wire/cAmbrelisCommand.h"

// The wall clock as the driver reads it. Stopped (not 0), it lets a test put a date exactly at a
// limit; the pump's waits and the test framework's timings read the monotonic clock.
static time_t stoppedClock = 0;
extern "C" int clock_gettime(clockid_t id, timespec* now) noexcept {
    if (id == CLOCK_REALTIME && stoppedClock != 0) {
        *now = {stoppedClock, 0};
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, id, now));
}

namespace {

using namespace std::chrono_literals;
using testsupport::FakeNetwork;

const std::string kMac = "a4:5e:60:1:b2:c3", kIp = "10.0.0.5";

class ScanTest : public DriverFixture {
protected:
    void SetUp() override {
        DriverFixture::SetUp();
        connect();
        Globals::gScanner = host::New<cScanner>();
        Globals::gScanner->Constructor();
        stoppedClock = ::time(nullptr);
    }
    ~ScanTest() override { stoppedClock = 0; }

    // The date `seconds` before the stopped clock, or none.
    static host::Ref<host::Date> ago(std::optional<double> seconds) {
        return seconds ? host::New<host::Date>(stoppedClock - *seconds) : nullptr;
    }
    // A message from the controller, decoded as the link decodes it.
    static host::Ref<cAmbrelisCommand> message(
        const std::vector<std::pair<std::string, std::string>>& pairs) {
        auto cmd = host::New<cAmbrelisCommand>();
        EXPECT_TRUE(cmd->initFromMultiPacket(host::String(testsupport::multiPacket(pairs))));
        return cmd;
    }
};

struct PingRow {
    bool arp, available, firstScan;
    std::optional<double> lastGoodAgo;
    const char* answer;
    Lines sent;
    // Last, whether the controller has this address and a time of 0.050 already.
    bool availableAfter, known = false;
};

TEST_F(ScanTest, EachEndOfAPingDecidesWhatTheControllerIsTold) {
    const std::string on = "mcmd=ON addr=" + kMac, off = "mcmd=OFF addr=" + kMac;
    const std::string offIp = "mcmd=OFF addr=" + kIp, upd = " UpDt=true";
    // The blank before "ping statistics" goes out as part of the address.
    const std::string report =
        "mcmd=NoOp UPN0=IP UPV0=" + kIp + "  UPN1=response time UPV1=0.050 addr=";
    const std::string time = "mcmd=NoOp UPN0=response time UPV0=";
    const std::string garbled = "mcmd=NoOp UPN0=IP UPV0=\x01\xff = / addr=";
    const std::vector<PingRow> rows = {
        {true, false, true, {}, "up 0.050", {on + upd, report + kMac}, true},
        {true, false, false, 30, "up 0.050", {on, report + kMac}, true},
        {true, false, false, {}, "half 0.050", {on, report + kMac}, true},  // one reply of two
        {false, false, true, {}, "up 0.050", {"mcmd=ON addr=" + kIp + upd, report + kIp}, true},
        {true, false, false, 5000, "lost", {}, false},
        {false, false, true, {}, "lost", {offIp + upd}, false},
        {true, false, true, {}, "unknown", {off + upd}, false},
        // A unit host gets no grace; an arp host keeps its ON for 1020 s after its last answer.
        {false, true, false, 10, "lost", {offIp}, false},
        {true, true, false, 1020.5, "lost", {off}, false},
        {true, true, false, 1020, "lost", {}, true},
        {false, true, false, 10, "killed", {offIp}, false},
        {true, true, false, 10, "garbage", {garbled + kMac}, true},
        // Only what changed is reported.
        {true, true, false, 10, "up 0.050", {}, true, true},
        {true, true, false, 10, "up 0.061", {time + "0.061 addr=" + kMac}, true, true},
    };
    for (const PingRow& row : rows) {
        SCOPED_TRACE(&row - rows.data());
        network.answer(kIp, row.answer);
        auto device = arpHost(kIp, kMac);
        device->useArpTiming = row.arp;
        device->available = row.available;
        device->firstScan = row.firstScan;
        device->LastGoodPing = ago(row.lastGoodAgo);
        device->lastSendIPADrress = host::String(row.known ? kIp + " " : "");
        device->lastAverageTime = row.known ? "0.050" : "";
        device->DoPing();
        EXPECT_EQ(settle(), row.sent);
        EXPECT_EQ(std::pair(device->available, device->firstScan),
                  std::pair(row.availableAfter, false));
    }
}

// The pump holds a running device until its end is delivered, so the count comes down.
TEST_F(ScanTest, SixPingsRunAtOnceAndDroppedDevicesStillEnd) {
    std::int64_t most = 0;
    for (int i = 0; i < 8; ++i) {
        const std::string ip = "10.1.0." + std::to_string(i),
                          mac = "02:00:00:00:00:0" + std::to_string(i);
        network.answer(ip, "slow 0.1");
        arpHost(ip, mac)->DoPing();
        hosts().Remove(host::String(mac));
        most = std::max(most, Globals::outstandingPings);
    }
    EXPECT_EQ(most, 6);
    EXPECT_EQ(settle().size(), 16u) << "an ON and a report each";
}

TEST_F(ScanTest, TheSweepEntersTheArpTableAndPingsWhatIsDue) {
    // The table as the sweep reads it: what the kernel gives, and lines only a tool would print,
    // which the sweep reads by the same rules.
    // clang-format off
    const std::vector<host::String> table = {
        "Address HWtype HWaddress Flags Mask Iface", "? (10.0.0.1) at 02:00:00:00:00:01 on eth0",
        "? (10.0.0.2) at (incomplete) on eth0", "? (10.0.0.255) at ff:ff:ff:ff:ff:ff on eth0",
        "? (10.0.0.3) at 2:0:0:0:0:3 on eth0\r", "? (10.0.0.4) at 02:00:00:00:00:03 on eth0",
        "? (10.0.0.5) at 02:00:00:00:00:01 on eth0", "? (10.0.0.6) at 02:00:00:00:00:0A on eth0",
        "? (10.0.0.7) at 02:00:00:00:00:0a on eth0 PERM", "? (10.0.0.8) at de:ad:be:ef:00:08", ""};
    // clang-format on
    Globals::gScanner->readNeighbours = [&table] { return NeighbourTable::Reading{table, {}}; };
    // An arp host or not, available or not, the time since its last ping and answer, pinged.
    const std::vector<std::tuple<bool, bool, std::optional<double>, bool>> rows = {
        {true, false, 3600.5, true}, {true, false, 3600, true}, {true, false, {}, true},
        {true, true, 4000, true},    {false, false, {}, true},  {false, true, 300.5, true},
        {false, true, 300, false},   {false, false, 5, true},
    };
    // An address reaches ping as one plain argument: no shell reads it, no option is taken from
    // it, and blanks at its ends (which a BSD command line would have dropped) are gone.
    const std::string touch = "touch " + network.folder() + "/touched";
    const std::string evil = "1.2.3.4; " + touch + " $(" + touch + ") `" + touch + "`";
    // Rows 4 to 7 are unit hosts. Waiting for a free ping slot pumps; a deletion handled there
    // must not trip the pass.
    std::vector<UnitListRecord::Unit> units = {
        {10, evil, ""}, {11, "-f", ""}, {12, " \tprinter ", ""}, {13, "my host", ""}};
    for (int id : {4, 5, 6, 7, 99}) {
        units.push_back({id, id == 99 ? "10.3.0.1" : "10.2.0." + std::to_string(id), ""});
    }
    Lines expected = {FakeNetwork::kBroadcastCall};
    // A group printed with one digit is another key; letter case is not.
    for (const char* argument : {evil.c_str(), "-f", "printer", "my host", "10.0.0.5", "10.0.0.3",
                                 "10.0.0.4", "10.0.0.7", "10.0.0.8"}) {
        expected.push_back(FakeNetwork::probeCall(argument));
    }
    Globals::gScanner->gotUnitsFromAmbrelis(message({{"DATA", UnitListRecord::bytes(units)}}));
    server.send(
        testsupport::multiPacket({{"mcmd", "UnitDeleted"}, {"UnID", "99"}, {"addr", "10.3.0.1"}}));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::string ip = "10.2.0." + std::to_string(i);
        const auto [arp, available, since, pinged] = rows[i];
        auto device =
            arp ? arpHost(ip, "02:00:00:00:02:" + ip.substr(7)) : hosts().Value(double(i));
        device->available = available;
        device->firstScan = false;
        device->LastGoodPing = device->lastPing = ago(since);
        if (pinged) {
            expected.push_back(FakeNetwork::probeCall(ip));
        }
    }
    Globals::DebugMode = true;
    Globals::gScanner->DoScan();
    settle();
    auto calls = network.pingCalls();
    std::ranges::sort(calls);  // the pings run side by side
    std::ranges::sort(expected);
    EXPECT_EQ(calls, expected);
    // Eight unit hosts, three arp hosts of the rows and five of the table: the silent arp host and
    // the deleted unit host are gone.
    EXPECT_EQ(hosts().Count(), 16);
    EXPECT_FALSE(hosts().HasKey("02:00:00:00:02:0"));
    EXPECT_FALSE(std::filesystem::exists(network.folder() + "/touched"));
    // Every block of this machine's LANs is asked for, from the fake of the fill tool.
    const auto blocks = LocalNetworks::fillRanges(LocalNetworks::current()).size();
    host::EventPump::instance().runUntil(2000,
                                         [&] { return network.fillCalls().size() >= blocks; });
    EXPECT_EQ(network.fillCalls().size(), blocks);
}

// The sweep reads the table only once the fill's tools have ended, serving the link meanwhile;
// a fill started ahead is not started again. Units that come while the first sweep waits for its
// fill are made after its table is read, and first pinged by the next sweep. Each kind of trouble
// with the table is told once, and the sweep goes on with what came.
TEST_F(ScanTest, TheTableIsReadOnceTheFillIsOverAndEachTroubleIsToldOnce) {
    using Problem = NeighbourTable::Problem;
    std::ofstream(network.folder() + "/fill-sleep") << "0.6\n";
    const std::vector<std::vector<NeighbourTable::Complaint>> complaints = {
        {{Problem::CutShort, "cut"}, {Problem::OddHardware, "odd"}},
        {{Problem::CutShort, "cut again"}, {Problem::InterfaceGone, "gone"}}};
    // The fill's tools last 0.6 s: a table read sooner was read too soon.
    auto begun = std::chrono::steady_clock::now();
    std::vector<bool> fillOver;
    Globals::gScanner->readNeighbours = [&] {
        fillOver.push_back(std::chrono::steady_clock::now() - begun >= 600ms);
        return NeighbourTable::Reading{{"? (10.0.0.1) at 02:00:00:00:00:01 on eth0"},
                                       complaints.at(fillOver.size() - 1)};
    };
    const auto fills = [this] {
        return network.fillCalls().size() +
               std::ranges::count(network.pingCalls(), FakeNetwork::kBroadcastCall);
    };
    // What the controller got but reports, log lines of level 4 by their text alone.
    const auto sweep = [this](const std::string& before) {
        server.send(before + testsupport::multiPacket({{"mcmd", "ping"}}));
        Globals::gScanner->DoScan();
        Lines sent;
        for (const std::string& message : settle()) {
            const bool told = message.starts_with("mcmd=WrtL Valu=4");
            const std::string seen = told ? message.substr(message.rfind('=') + 1) : message;
            if (seen.find("addr=") == std::string::npos) {
                sent.push_back(seen);
            }
        }
        return sent;
    };
    const std::string units = testsupport::multiPacket(
        {{"mcmd", "setUnits"}, {"DATA", UnitListRecord::bytes({{5, "10.0.0.9", "Lamp"}})}});
    EXPECT_EQ(sweep(units), (Lines{"mcmd=PSrp", "cut", "odd",
                                   "mcmd=WrtL Valu=2 DATA=creating a new ping device for unit "
                                   "with Address: 10.0.0.9"}));
    EXPECT_EQ(network.pingCalls().size(), 2u) << "the broadcast and the arp host's probe only";
    const std::size_t tools = fills();
    Globals::gScanner->prepareScan(1000);
    EXPECT_EQ(fills(), tools);
    begun = std::chrono::steady_clock::now();
    Globals::gScanner->prepareScan(0.1);
    EXPECT_EQ(sweep(""), (Lines{"mcmd=PSrp", "gone"}));
    EXPECT_EQ(fills(), 2 * tools);
    EXPECT_EQ(fillOver, (std::vector<bool>{true, true}));
    EXPECT_TRUE(hosts().HasKey("02:00:00:00:00:01"));
    EXPECT_EQ(std::ranges::count(network.pingCalls(), FakeNetwork::probeCall("10.0.0.9")), 1);
}

TEST_F(ScanTest, UnitListsMakePingHostsKeepWhatTheyKnowAndAnswerMacUnitsAtOnce) {
    arpHost("10.0.0.1", "02:00:00:00:00:01")->available = true;
    arpHost("10.0.0.2", "02:00:00:00:00:02");
    const std::vector<UnitListRecord::Unit> units = {
        {1, "10.4.0.1", ""},    {2, "02:00:00:00:00:01", ""}, {3, "02:00:00:00:00:02", ""},
        {4, "2:0:0:0:0:9", ""}, {5, "fe80::1", ""},           {1, "10.4.0.9", ""},
        {7, "10.4.0.7", ""}};
    Globals::gScanner->gotUnitsFromAmbrelis(message({{"DATA", UnitListRecord::bytes(units)}}));
    const std::string creating =
        "mcmd=WrtL Valu=2 DATA=creating a new ping device for unit with Address: 10.4.0.";
    EXPECT_EQ(settle(), (Lines{creating + "1", "addr=02:00:00:00:00:01 UpDt=true mcmd=ON",
                               "addr=02:00:00:00:00:02 UpDt=true mcmd=OFF",
                               "mcmd=OFF addr=2:0:0:0:0:9 UpDt=true",
                               "mcmd=OFF addr=fe80::1 UpDt=true", creating + "7"}));
    ASSERT_EQ(hosts().Count(), 4);
    const auto lamp = hosts().Value(1.0);
    EXPECT_EQ(lamp->MyIPAddress.bytes(), "10.4.0.9");
    // A list that cannot be read raises and changes no device: the second unit's record claims
    // a newer version of the format.
    std::string data = UnitListRecord::bytes({{1, "10.4.0.99", "Lamp"}, {2, "10.4.0.2", "Radio"}});
    data[data.rfind("Mfrq") + 4] = 0x42;
    EXPECT_THROW(Globals::gScanner->gotUnitsFromAmbrelis(message({{"DATA", data}})),
                 host::RuntimeException);
    EXPECT_EQ(lamp->MyIPAddress.bytes(), "10.4.0.9");
    EXPECT_EQ(settle(), Lines{});
    // The record store's own line takes the driver's road, as the process wired it.
    Globals::gScanner->gotUnitsFromAmbrelis(message({{"DATA", "Mfrq\x41?  E"}}));
    EXPECT_EQ(settle(), Lines{"mcmd=WrtL Valu=4 DATA=read error unable to get byte order"});

    // A deletion goes by the id alone, and a MAC unit has nothing to delete.
    const std::string removed = "mcmd=WrtL Valu=2 DATA=pings will no longer be sent to: ";
    const std::string unknown =
        "mcmd=WrtL Valu=4 DATA=a unit with address of: 10.4.0.9 was not found to remove";
    for (auto [id, addr, sent, count] : {std::tuple{"7", "10.9.9.9", removed + "10.9.9.9", 3},
                                         {"7", "10.4.0.9", unknown, 3},
                                         {"1", "02:00:00:00:00:02", "", 3},
                                         {"1.0", "10.4.0.2", removed + "10.4.0.2", 2}}) {
        Globals::gScanner->unitDeleted(message({{"UnID", id}, {"addr", addr}}));
        EXPECT_EQ(settle(), sent.empty() ? Lines{} : Lines{sent}) << id << " " << addr;
        EXPECT_EQ(hosts().Count(), count) << id;
    }
}

}  // namespace
