#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/sim/RowHint.h"
#include "tools/sim/SweepClock.h"

namespace {

constexpr double kPeriod = sim::SweepClock::kPeriodSeconds;

TEST(SweepClockTest, CountsSweepsFromTheUnitRequestAndFollowsTheDriversOwnMark) {
    struct Case {
        const char* what;
        std::vector<std::pair<double, std::string>> lines;  // "units" or a log line
        double at;
        int sweep;
        std::optional<double> nextIn;
    };
    const Case cases[] = {
        {"nothing asked yet", {}, 50, 0, std::nullopt},
        {"first sweep", {{10, "units"}}, 10, 1, kPeriod},
        {"just before the second", {{10, "units"}}, 10 + kPeriod - 0.5, 1, 0.5},
        {"third", {{10, "units"}}, 10 + 2 * kPeriod + 1, 3, kPeriod - 1},
        {"a mark early in the sweep moves its start",
         {{10, "units"}, {14, "begin arp scan"}},
         20,
         1,
         14 + kPeriod - 20},
        {"a late mark starts the next sweep before it was expected",
         {{10, "units"}, {10 + kPeriod - 3, "begin arp scan"}},
         10 + kPeriod - 2,
         2,
         kPeriod - 1},
        {"other lines change nothing",
         {{10, "units"}, {30, "begin arp scan "}},
         30,
         1,
         10 + kPeriod - 30},
    };
    for (const Case& c : cases) {
        sim::SweepClock clock;
        for (const auto& [at, text] : c.lines) {
            if (text == "units") {
                clock.unitsAsked(at);
            } else {
                clock.logLine(at, text);
            }
        }
        EXPECT_EQ(clock.sweepAt(c.at), c.sweep) << c.what;
        ASSERT_EQ(clock.nextIn(c.at).has_value(), c.nextIn.has_value()) << c.what;
        if (c.nextIn) {
            EXPECT_NEAR(*clock.nextIn(c.at), *c.nextIn, 1e-9) << c.what;
        }
    }
}

TEST(SweepClockTest, TellsEachSweepOnceItsPingsAreOver) {
    sim::SweepClock clock;
    clock.unitsAsked(0);
    const double over = sim::SweepClock::kPingsOverSeconds;
    EXPECT_TRUE(clock.takeSummaries(over - 0.1).empty());
    EXPECT_EQ(clock.takeSummaries(over),
              std::vector<std::string>{"sweep 1: nothing found in the neighbour table"});
    clock.reported(kPeriod + 1);
    clock.reported(kPeriod + 2);
    clock.reported(2 * kPeriod + 1);
    EXPECT_TRUE(clock.takeSummaries(kPeriod + 1).empty());
    // Missed turns are caught up in order.
    EXPECT_EQ(clock.takeSummaries(3 * kPeriod + over),
              (std::vector<std::string>{"sweep 2: 2 reports", "sweep 3: 1 report",
                                        "sweep 4: no change reported"}));
    EXPECT_EQ(clock.sweepsTold(), 4);
    clock.stop();
    EXPECT_EQ(clock.nextIn(3 * kPeriod + over), std::nullopt);
}

TEST(SweepClockTest, SaysWhatARowWithoutReportWaitsFor) {
    sim::PresenceTable::Row pinged;
    pinged.address = "10.0.0.1";
    pinged.isUnit = true;
    sim::PresenceTable::Row hardwareUnit;
    hardwareUnit.address = "02:fc:aa:bb:cc:dd";
    hardwareUnit.isUnit = true;

    sim::SweepClock clock;
    EXPECT_EQ(sim::RowHint::waiting(pinged, clock, 1),
              "waiting for the driver to ask for its units");
    clock.unitsAsked(1);
    EXPECT_EQ(sim::RowHint::waiting(pinged, clock, 12), "first ping at sweep 2, in 22s");
    EXPECT_EQ(sim::RowHint::waiting(pinged, clock, 1 + kPeriod + 1), "first ping under way");
    EXPECT_EQ(sim::RowHint::waiting(hardwareUnit, clock, 12),
              "told once the driver has read the unit list");
    clock.stop();
    EXPECT_EQ(sim::RowHint::waiting(pinged, clock, 12), "no report before close");

    sim::PresenceTable::Row off = hardwareUnit;
    off.state = sim::PresenceTable::State::Off;
    EXPECT_TRUE(sim::RowHint::isOffByHardware(off));
    off.address = "10.0.0.1";
    EXPECT_FALSE(sim::RowHint::isOffByHardware(off));
}

}  // namespace
