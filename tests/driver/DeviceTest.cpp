#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "ScanFixture.h"

namespace {

constexpr const char* kMac = "a4:5e:60:1:b2:c3";
constexpr const char* kIp = "10.0.0.5";

class DeviceTest : public ScanFixture {
protected:
    // A device as a row describes it, its dates moved into the past.
    host::Ref<cDevice> device(bool arp, bool available, bool firstScan,
                              std::optional<double> lastGoodAgo) {
        host::Ref<cDevice> made = arpHost(kIp, kMac);
        if (!arp) {
            made->useArpTiming = false;
        }
        made->available = available;
        made->firstScan = firstScan;
        if (lastGoodAgo) {
            made->LastGoodPing = host::New<host::Date>(host::Date().TotalSeconds() - *lastGoodAgo);
        }
        return made;
    }
};

struct Row {
    const char* name;
    bool arp;
    bool available;
    bool firstScan;
    std::optional<double> lastGoodAgo;
    const char* answer;
    std::vector<std::string> sent;
    bool availableAfter;
};

TEST_F(DeviceTest, EachEndOfAPingDecidesAsTheTableSays) {
    const std::string onMac = std::string("mcmd=ON addr=") + kMac;
    const std::string offMac = std::string("mcmd=OFF addr=") + kMac;
    const std::string offIp = std::string("mcmd=OFF addr=") + kIp;
    // The blank before "ping statistics" goes out as part of the address.
    const std::string noop = std::string("mcmd=NoOp UPN0=IP UPV0=") + kIp +
                             "  UPN1=response time UPV1=0.050 addr=" + kMac;
    const std::vector<Row> rows = {
        {"first good ping", true, false, true, {}, "up 0.050", {onMac + " UpDt=true", noop}, true},
        {"comes back", true, false, false, 30, "up 0.050", {onMac, noop}, true},
        {"one reply of two counts", true, false, false, {}, "half 0.050", {onMac, noop}, true},
        {"unit host reports under its address",
         false,
         false,
         true,
         {},
         "up 0.050",
         {std::string("mcmd=ON addr=") + kIp + " UpDt=true",
          std::string("mcmd=NoOp UPN0=IP UPV0=") + kIp +
              "  UPN1=response time UPV1=0.050 addr=" + kIp},
         true},
        {"absent stays absent", true, false, false, 5000, "lost", {}, false},
        {"first ping of a unit host fails",
         false,
         false,
         true,
         {},
         "lost",
         {offIp + " UpDt=true"},
         false},
        {"first ping of an arp host fails",
         true,
         false,
         true,
         {},
         "unknown",
         {offMac + " UpDt=true"},
         false},
        {"present unit host fails at once", false, true, false, 10, "lost", {offIp}, false},
        {"arp host past its grace", true, true, false, 1021, "lost", {offMac}, false},
        {"arp host within its grace", true, true, false, 1000, "lost", {}, true},
        {"a ping killed by a signal failed", false, true, false, 10, "killed", {offIp}, false},
        {"exit 0 with garbage reports empty fields",
         true,
         true,
         false,
         10,
         "garbage",
         {std::string("mcmd=NoOp UPN0=IP UPV0=\x01\xff = / addr=") + kMac},
         true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        network.answer(kIp, row.answer);
        auto probed = device(row.arp, row.available, row.firstScan, row.lastGoodAgo);
        probed->DoPing();
        EXPECT_EQ(settle(), row.sent);
        EXPECT_EQ(probed->available, row.availableAfter);
        EXPECT_FALSE(probed->firstScan);
        hosts().Remove(host::String(kMac));
    }
}

TEST_F(DeviceTest, ReportsOnlyWhatChanged) {
    auto probed = device(true, false, true, {});
    network.answer(kIp, "up 0.050");
    probed->DoPing();
    settle();
    const auto firstGood = probed->LastGoodPing->TotalSeconds();

    probed->DoPing();
    EXPECT_EQ(settle(), std::vector<std::string>{}) << "same average";
    EXPECT_GE(probed->LastGoodPing->TotalSeconds(), firstGood);

    network.answer(kIp, "up 0.061");
    probed->DoPing();
    EXPECT_EQ(settle(), std::vector<std::string>{
                            std::string("mcmd=NoOp UPN0=response time UPV0=0.061 addr=") + kMac});
}

TEST_F(DeviceTest, NeverRunsMoreThanSixPingsAtOnce) {
    std::vector<host::Ref<cDevice>> devices;
    for (int i = 0; i < 14; ++i) {
        const std::string ip = "10.1.0." + std::to_string(i);
        network.answer(ip, "slow 0.1");
        devices.push_back(arpHost(ip, "02:00:00:00:00:" + std::to_string(i)));
    }
    for (const auto& probed : devices) {
        probed->DoPing();
        EXPECT_LE(Globals::outstandingPings, 6);
    }
    EXPECT_EQ(settle().size(), 28u) << "an ON and a report each";
}

// The pump holds a running device until its end is delivered, so the count comes down.
TEST_F(DeviceTest, ADeviceDroppedWhileItsPingRunsStillEnds) {
    network.answer(kIp, "slow 0.1");
    {
        auto probed = device(true, false, true, {});
        probed->DoPing();
        hosts().Remove(host::String(kMac));
    }
    EXPECT_EQ(Globals::outstandingPings, 1);
    EXPECT_EQ(settle().size(), 2u);
}

// The log line asks for a unit, the message for the kind of host.
TEST_F(DeviceTest, ReportLinesInDebugMode) {
    auto unitHost = device(false, false, true, {});
    auto unit = host::New<CXML>();
    unit->Constructor();
    unit->SetStringValue("Address", "10.9.9.9");  // and no "Name"
    unitHost->myUnit = unit;
    auto arpDevice = device(true, false, true, {});
    Globals::DebugMode = true;
    unitHost->SendOFFCommand(true);
    arpDevice->SendONCommand(false);
    EXPECT_EQ(settle(), (std::vector<std::string>{
                            "mcmd=WrtL Valu=4 DATA=sending OFF for unit  at address: 10.9.9.9",
                            std::string("mcmd=OFF addr=") + kIp + " UpDt=true",
                            std::string("mcmd=WrtL Valu=4 DATA=sending ON for address ") + kMac,
                            std::string("mcmd=ON addr=") + kMac}));
}

}  // namespace
