#include <gtest/gtest.h>

#include "tools/sim/PresenceTable.h"

namespace {

using State = sim::PresenceTable::State;

TEST(PresenceTableTest, RowsMatchUnitsWithoutCaseAndKeepTheTimeOfTheLastChange) {
    sim::UnitList units;
    ASSERT_EQ(units.addUnit("1, Phone, 02:FC:3A:11:9E:40"), std::nullopt);
    sim::PresenceTable table(units, 2);
    ASSERT_EQ(table.rows().size(), 1u);
    EXPECT_EQ(table.rows()[0].state, State::Unknown);

    table.setState("02:fc:3a:11:9e:40", State::Off, 1.0);
    table.setState("02:fc:3a:11:9e:40", State::On, 2.0);
    table.setState("02:fc:3a:11:9e:40", State::On, 3.0);
    table.setResponse("02:Fc:3a:11:9e:40", "10.0.0.9", "0.5");
    table.setResponse("02:fc:3a:11:9e:40", "", "0.7");
    table.setState("10.0.0.1", State::Off, 4.0);

    ASSERT_EQ(table.rows().size(), 2u);
    const auto& phone = table.rows()[0];
    EXPECT_EQ(phone.name, "Phone");
    EXPECT_EQ(phone.state, State::On);
    EXPECT_EQ(phone.changedAt, 2.0);
    EXPECT_EQ(phone.ip, "10.0.0.9");
    EXPECT_EQ(phone.responseTime, "0.7");
    EXPECT_EQ(table.rows()[1].name, "");

    for (const char* line : {"a", "b", "c"}) {
        table.addLog(line);
    }
    ASSERT_EQ(table.log().size(), 2u);
    EXPECT_EQ(table.log().front().text, "b");
}

}  // namespace
