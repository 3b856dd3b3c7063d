#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/sim/TableDisplay.h"

namespace {

using State = sim::PresenceTable::State;

std::size_t characters(const std::string& line) {
    std::size_t count = 0;
    for (const char c : line) {
        count += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    }
    return count;
}

std::string rowOf(const std::vector<std::string>& screen, const std::string& start) {
    for (const std::string& line : screen) {
        if (line.rfind(start, 0) == 0) {
            return line;
        }
    }
    return "(no line starts with " + start + ")";
}

// A home LAN as the screen shows it: a unit pinged by address, the hardware row at that
// address, a host that drops pings, a unit not reported yet and a long log line.
class TableDisplayTest : public ::testing::Test {
protected:
    TableDisplayTest() {
        EXPECT_EQ(units.addUnit("1, Router, 10.0.0.1"), std::nullopt);
        EXPECT_EQ(units.addUnit("2, Garage door opener in the back, 10.0.0.77"), std::nullopt);
        table.emplace(units, 10);
        clock.unitsAsked(1);
        table->setState("10.0.0.1", State::On, 40);
        table->setResponse("10.0.0.1", "10.0.0.1", "0.364");
        table->setState("02:fc:aa:bb:cc:dd", State::On, 3);
        table->setResponse("02:fc:aa:bb:cc:dd", "10.0.0.1", "0.029");
        table->setState("02:fc:aa:bb:cc:03", State::Off, 3);
        table->addLog("creating a new ping device for unit with Address: " + std::string(70, 'x') +
                      ".example");
    }

    sim::UnitList units;
    std::optional<sim::PresenceTable> table;
    sim::SweepClock clock;
};

TEST_F(TableDisplayTest, EveryLineFitsAndSaysWhatItShows) {
    const sim::TableDisplay display(*table, clock);
    const auto screen = display.screen(12, "title\nsweep 1", 80, 24);
    ASSERT_LE(screen.size(), 24u);
    for (const std::string& line : screen) {
        EXPECT_LE(characters(line), 79u) << line;
    }
    EXPECT_EQ(screen[3],
              "ADDRESS           NAME              STATE RESPONSE   IP              CHANGED");
    EXPECT_EQ(rowOf(screen, "10.0.0.1 "),
              "10.0.0.1          Router            ON    0.364 ms   10.0.0.1        0s ago");
    EXPECT_EQ(rowOf(screen, "02:fc:aa:bb:cc:dd"),
              "02:fc:aa:bb:cc:dd (Router)          ON    0.029 ms   10.0.0.1        9s ago");
    EXPECT_EQ(rowOf(screen, "02:fc:aa:bb:cc:03").substr(36, 6), "OFF*  ");
    EXPECT_EQ(rowOf(screen, "10.0.0.77"),
              "10.0.0.77         Garage door open\xe2\x80\xa6 -     first ping at sweep 2, in 22s");
    EXPECT_EQ(rowOf(screen, "OFF* by hardware address").substr(0, 25), "OFF* by hardware address:");
    // The long log line is wrapped, not cut.
    std::string log;
    for (const std::string& line : screen) {
        log += line.size() > 9 ? line.substr(9) : "";
    }
    EXPECT_NE(log.find(std::string(70, 'x') + ".example"), std::string::npos);
    EXPECT_EQ(screen.back().rfind("keys: p ping", 0), 0u);
}

TEST_F(TableDisplayTest, UsesTheWidthAndSaysWhatDidNotFit) {
    const sim::TableDisplay display(*table, clock);
    const auto wide = display.screen(12, "title\nsweep 1", 120, 30);
    EXPECT_EQ(wide[3].find("STATE"), 18u + 58u);
    EXPECT_NE(rowOf(wide, "10.0.0.77").find("Garage door opener in the back "), std::string::npos);

    for (int i = 0; i < 30; ++i) {
        table->setState("02:fc:aa:bb:cc:" + std::to_string(10 + i), State::On, 5);
    }
    const auto full = display.screen(12, "title\nsweep 1", 80, 24);
    ASSERT_EQ(full.size(), 24u);
    EXPECT_NE(rowOf(full, "... and ").find(" more rows"), std::string::npos);
}

}  // namespace
