#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "store/CXML.h"
#include "tools/sim/ControllerMessages.h"
#include "tools/sim/UnitList.h"
#include "wire/cAmbrelisCommand.h"

namespace {

// Each line follows a comment, a blank line and a good unit with id 1, so it is line 4.
struct LineCase {
    const char* line;
    const char* problem;  // nullptr: the line is taken
};

const LineCase kLines[] = {
    {"2, Router, 192.168.1.1", nullptr},
    {"  7 ,\tPhone X , 02:FC:3a:11:9E:40 \r", nullptr},
    {"3, NAS, nas-1.home.lan", nullptr},
    {"# 2, commented out, nonsense", nullptr},
    {"2, Router", "expected uniqueid, name, address: found 2 fields"},
    {"2, a,b, 10.0.0.1", "expected uniqueid, name, address: found 4 fields"},
    {"0, a, 10.0.0.1", "uniqueid \"0\" is not a whole number from 1 to 9007199254740991"},
    {"-2, a, 10.0.0.1", "uniqueid \"-2\" is not a whole number from 1 to 9007199254740991"},
    {"2.5, a, 10.0.0.1", "uniqueid \"2.5\" is not a whole number from 1 to 9007199254740991"},
    {"9007199254740992, a, 10.0.0.1",
     "uniqueid \"9007199254740992\" is not a whole number from 1 to 9007199254740991"},
    {"1, Again, 10.0.0.1", "uniqueid 1 is already used at FILE:3"},
    {"2, Gate, GW.Lan", "address GW.Lan is already unit 1 at FILE:3"},
    {"1, , gw.LAN",
     "name is empty; uniqueid 1 is already used at FILE:3; address gw.LAN is already unit 1 at "
     "FILE:3"},
    {"x, a, 10.0.0",
     "uniqueid \"x\" is not a whole number from 1 to 9007199254740991; address "
     "\"10.0.0\" is not an IPv4 address"},
    {"2, , 10.0.0.1", "name is empty"},
    {"2, a,", "address is empty"},
    {"2, a, 10.0.1", "address \"10.0.1\" is not an IPv4 address"},
    {"2, a, 10.0.0.256", "address \"10.0.0.256\" is not an IPv4 address"},
    {"2, a, 02:fc:3a:11:9e",
     "address \"02:fc:3a:11:9e\" is not a hardware address (six two-digit hex groups joined by "
     "colons)"},
    {"2, a, 2:fc:3a:11:9e:40",
     "address \"2:fc:3a:11:9e:40\" is not a hardware address (six two-digit hex groups joined by "
     "colons)"},
    {"2, a, 7e-52-52-83-30-84",
     "hardware address \"7e-52-52-83-30-84\" must be written with colons: 7e:52:52:83:30:84"},
    {"2, a, 7E52.5283.3084",
     "hardware address \"7E52.5283.3084\" must be written with colons: 7E:52:52:83:30:84"},
    {"2, a, 7e5252833084",
     "hardware address \"7e5252833084\" must be written with colons: 7e:52:52:83:30:84 (a host "
     "name of twelve hex digits needs its domain)"},
    {"2, a, 123456789012",
     "hardware address \"123456789012\" must be written with colons: 12:34:56:78:90:12 (a host "
     "name of twelve hex digits needs its domain)"},
    {"2, a, printer-2", nullptr},
    {"2, a, host-01.lan", nullptr},
    {"2, a, 7e-52-52-83-30", nullptr},
    {"2, a, 7e-52-52-83-30-8g", nullptr},
    {"2, a, 7e52-5283-3084", nullptr},
    {"2, a, 7e5252833084.lan", nullptr},
    {"2, a, -c", "address \"-c\" is not a host name"},
    {"2, a, my_host", "address \"my_host\" is not a host name"},
};

// A units file of the test's own; FILE in an expected problem stands for its path.
class UnitsFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        const int fd = ::mkstemp(path_.data());
        ASSERT_GE(fd, 0);
        ::close(fd);
    }
    void TearDown() override { ::unlink(path_.c_str()); }

    std::vector<std::string> read(const std::string& content) {
        std::ofstream(path_) << content;
        units_ = sim::UnitList();
        return units_.addFile(path_);
    }
    std::string withPath(std::string text) const {
        for (auto at = text.find("FILE"); at != std::string::npos;
             at = text.find("FILE", at + path_.size())) {
            text.replace(at, 4, path_);
        }
        return text;
    }

    std::string path_ = "/tmp/units-XXXXXX";
    sim::UnitList units_;
};

TEST_F(UnitsFileTest, EachLineIsTakenOrReportedWithFileAndLine) {
    for (const LineCase& c : kLines) {
        const auto problems =
            read("# id, name, address\n\n1, Gateway, gw.lan\n" + std::string(c.line) + "\n");
        if (c.problem == nullptr) {
            EXPECT_EQ(problems, std::vector<std::string>()) << c.line;
        } else {
            EXPECT_EQ(problems,
                      std::vector<std::string>{withPath("FILE:4: " + std::string(c.problem))})
                << c.line;
        }
    }
}

TEST_F(UnitsFileTest, EveryBadLineIsReportedInOrderAndOnlyGoodOnesAreKept) {
    const auto problems = read(
        "1, Router, 10.0.0.1\n"
        "2, Phone\n"
        "3, , 10.0.0.3\n"
        "# 4, skipped, x\n"
        "4, Tablet, 7e-52-52-83-30-84\n"
        "3, Laptop, 10.0.0.4\n"
        "5, NAS, nas.lan\n"
        "6, Spare, NAS.LAN\n"
        "7, Printer, printer-2\n");
    EXPECT_EQ(problems,
              (std::vector<std::string>{
                  withPath("FILE:2: expected uniqueid, name, address: found 2 fields"),
                  withPath("FILE:3: name is empty"),
                  withPath("FILE:5: hardware address \"7e-52-52-83-30-84\" must be written with "
                           "colons: 7e:52:52:83:30:84"),
                  withPath("FILE:6: uniqueid 3 is already used at FILE:3"),
                  withPath("FILE:8: address NAS.LAN is already unit 5 at FILE:7"),
              }));
    EXPECT_EQ(units_.units().size(), 3u);
}

TEST(UnitListTest, TheUnitListReadsBackFromTheSetUnitsMessage) {
    sim::UnitList units;
    ASSERT_EQ(units.addUnit("12, Küche, 02:fc:3a:11:9e:40"), std::nullopt);
    ASSERT_EQ(units.addUnit("3, NAS, nas.lan"), std::nullopt);
    EXPECT_EQ(units.findByAddress("02:FC:3A:11:9E:40"), &units.units()[0]);

    cAmbrelisCommand message;
    message.Constructor();
    ASSERT_TRUE(message.initFromMultiPacket(
        host::String(sim::ControllerMessages::setUnits(units.toData()))));
    EXPECT_EQ(message.GetMulti("mcmd").bytes(), "setUnits");

    CXML list;
    list.Constructor();
    list.loadFromString(message.GetMulti("DATA"));
    ASSERT_EQ(list.GetContainerCount("unit"), 2);
    const auto first = list.GetContainer("unit", 1);
    EXPECT_EQ(first->GetDoubleValue("uniqueid"), 12.0);
    EXPECT_EQ(first->GetStringValue("Name").bytes(), "Küche");
    EXPECT_EQ(first->GetStringValue("Address").bytes(), "02:fc:3a:11:9e:40");
    const auto second = list.GetContainer("unit", 2);
    EXPECT_EQ(second->GetDoubleValue("uniqueid"), 3.0);
    EXPECT_EQ(second->GetStringValue("Address").bytes(), "nas.lan");
}

}  // namespace
