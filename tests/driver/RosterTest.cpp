#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "ScanFixture.h"
#include "UnitList.h"
#include "wire/cAmbrelisCommand.h"

namespace {

using testsupport::Unit;
using testsupport::unitList;

class RosterTest : public ScanFixture {
protected:
    static host::Ref<cAmbrelisCommand> message(
        const std::vector<std::pair<const char*, host::String>>& pairs) {
        auto cmd = host::New<cAmbrelisCommand>();
        cmd->Constructor();
        for (const auto& [key, value] : pairs) {
            cmd->SetMulti(key, value);
        }
        return cmd;
    }

    void setUnits(const std::string& data) {
        Globals::gScanner->gotUnitsFromAmbrelis(
            message({{"mcmd", "setUnits"}, {"DATA", host::String(data)}}));
    }
};

TEST_F(RosterTest, PingUnitsBecomeHostsAndMacUnitsAreAnsweredAtOnce) {
    arpHost("10.0.0.1", "02:00:00:00:00:01")->available = true;
    arpHost("10.0.0.2", "02:00:00:00:00:02");
    setUnits(unitList({{1, "10.4.0.1", "Lamp"},
                       {2, "02:00:00:00:00:01", "Phone"},
                       {3, "02:00:00:00:00:02", "Tablet"},
                       {4, "2:0:0:0:0:9", "Unknown"},
                       {5, "fe80::1", "IPv6"},
                       {1, "10.4.0.9", "Lamp moved"}}));
    EXPECT_EQ(settle(), (std::vector<std::string>{
                            "mcmd=WrtL Valu=2 DATA=creating a new ping device for unit with "
                            "Address: 10.4.0.1",
                            "addr=02:00:00:00:00:01 UpDt=true mcmd=ON",
                            "addr=02:00:00:00:00:02 UpDt=true mcmd=OFF",
                            "mcmd=OFF addr=2:0:0:0:0:9 UpDt=true",
                            "mcmd=OFF addr=fe80::1 UpDt=true",
                        }));
    ASSERT_EQ(hosts().Count(), 3);
    const auto device = hosts().Value(1.0);
    EXPECT_EQ(device->MyIPAddress.bytes(), "10.4.0.9");
    EXPECT_EQ(device->myUnit->GetStringValue("Name").bytes(), "Lamp moved");
    EXPECT_FALSE(device->useArpTiming);
    EXPECT_TRUE(device->lastPing.IsNil()) << "the sweep pings it, not the list";
    EXPECT_TRUE(hosts().Value("02:00:00:00:00:01")->available);
}

TEST_F(RosterTest, ASecondListMergesAndKeepsWhatADeviceKnows) {
    setUnits(unitList({{1, "10.4.0.1", "Lamp"}, {2, "10.4.0.2", "Radio"}}));
    const auto lamp = hosts().Value(1.0);
    lamp->available = true;
    lamp->firstScan = false;
    lamp->lastAverageTime = "0.050";
    settle();

    setUnits(unitList({{1, "10.4.0.11", "Lamp"}, {3, "10.4.0.3", "Heater"}}));
    EXPECT_EQ(settle(), (std::vector<std::string>{"mcmd=WrtL Valu=2 DATA=creating a new ping "
                                                  "device for unit with Address: 10.4.0.3"}));
    EXPECT_EQ(hosts().Value(1.0), lamp);
    EXPECT_EQ(lamp->MyIPAddress.bytes(), "10.4.0.11");
    EXPECT_TRUE(lamp->available);
    EXPECT_EQ(lamp->lastAverageTime.bytes(), "0.050");
    EXPECT_TRUE(hosts().HasKey(2.0)) << "only a deletion takes a unit host out";
    EXPECT_TRUE(hosts().HasKey(3.0));
}

struct DeletionRow {
    const char* unitId;
    const char* addr;
    std::vector<std::string> sent;
    bool twoStays;
};

TEST_F(RosterTest, DeletionGoesByTheIdAlone) {
    setUnits(unitList({{1, "10.4.0.1", "Lamp"}, {2, "10.4.0.2", "Radio"}}));
    settle();
    const std::vector<DeletionRow> rows = {
        {"1",
         "10.9.9.9",
         {"mcmd=WrtL Valu=2 DATA=pings will no longer be sent to: 10.9.9.9"},
         true},
        {"1",
         "10.4.0.1",
         {"mcmd=WrtL Valu=4 DATA=a unit with address of: 10.4.0.1 was not found to remove"},
         true},
        {"2", "02:00:00:00:00:02", {}, true},
        {"not a number",
         "x",
         {"mcmd=WrtL Valu=4 DATA=a unit with address of: x was not found to remove"},
         true},
        {"2.0",
         "10.4.0.2",
         {"mcmd=WrtL Valu=2 DATA=pings will no longer be sent to: 10.4.0.2"},
         false},
    };
    for (const DeletionRow& row : rows) {
        Globals::gScanner->unitDeleted(
            message({{"mcmd", "UnitDeleted"}, {"UnID", row.unitId}, {"addr", row.addr}}));
        EXPECT_EQ(settle(), row.sent) << row.unitId << " " << row.addr;
        EXPECT_EQ(hosts().HasKey(2.0), row.twoStays) << row.unitId;
    }
    EXPECT_FALSE(hosts().HasKey(1.0));
}

TEST_F(RosterTest, AListThatCannotBeReadRaisesAndChangesNoDevice) {
    setUnits(unitList({{1, "10.4.0.1", "Lamp"}}));
    settle();
    // The second unit's record claims a newer version of the format.
    std::string data = unitList({{1, "10.4.0.99", "Lamp"}, {2, "10.4.0.2", "Radio"}});
    data[data.rfind("Mfrq") + 4] = 0x42;
    EXPECT_THROW(setUnits(data), host::RuntimeException);
    EXPECT_EQ(hosts().Count(), 1);
    EXPECT_EQ(hosts().Value(1.0)->MyIPAddress.bytes(), "10.4.0.1");
    EXPECT_EQ(settle(), std::vector<std::string>{});

    // Not a list at all: an empty one, and every device stays.
    setUnits("no magic here");
    EXPECT_EQ(Globals::gScanner->ambrelisUnitXML->GetContainerCount("unit"), 0);
    EXPECT_EQ(hosts().Count(), 1);
}

// An address reaches ping as one plain argument: no shell reads it, no option is taken from it,
// and blanks at its ends (which a BSD command line would have dropped) are gone.
TEST_F(RosterTest, HostileAddressesReachPingAsOneArgument) {
    const std::string touched = network.folder() + "/touched";
    struct Row {
        std::string address;
        std::string argument;
    };
    const std::vector<Row> rows = {
        {"1.2.3.4; touch " + touched, "1.2.3.4; touch " + touched},
        {"-f", "-f"},
        {"$(touch " + touched + ")", "$(touch " + touched + ")"},
        {"`touch " + touched + "`", "`touch " + touched + "`"},
        {"printer ", "printer"},
        {" \t10.0.0.5", "10.0.0.5"},
        {"my host", "my host"},
    };
    std::vector<Unit> units;
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        units.push_back({static_cast<double>(i + 1), rows[i].address, "evil"});
        expected.push_back(testsupport::FakeNetwork::probeCall(rows[i].argument));
    }
    setUnits(unitList(units));
    network.forgetCalls();
    Globals::gScanner->DoScan();
    settle();
    auto calls = network.pingCalls();
    calls.erase(calls.begin());  // the broadcast
    // The pings run side by side, so their calls come in any order.
    std::sort(calls.begin(), calls.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(calls, expected);
    EXPECT_FALSE(std::filesystem::exists(touched));
}

}  // namespace
