#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "store/CXML.h"
#include "tools/sim/ControllerMessages.h"
#include "tools/sim/UnitList.h"
#include "wire/cAmbrelisCommand.h"

namespace {

// Each line follows a comment, a blank line and a good unit with id 1, so it is line 4. FILE in
// a problem stands for the file's path.
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

TEST(UnitListTest, UnitsFileLinesAreTakenOrReportedWithFileAndLine) {
    char path[] = "/tmp/units-XXXXXX";
    const int fd = ::mkstemp(path);
    ASSERT_GE(fd, 0);
    ::close(fd);
    for (const LineCase& c : kLines) {
        std::ofstream(path) << "# id, name, address\n\n1, Gateway, gw.lan\n" << c.line << "\n";
        sim::UnitList units;
        const auto problem = units.addFile(path);
        if (c.problem == nullptr) {
            EXPECT_EQ(problem, std::nullopt) << c.line;
        } else {
            std::string expected = std::string("FILE:4: ") + c.problem;
            for (auto at = expected.find("FILE"); at != std::string::npos;
                 at = expected.find("FILE", at + sizeof path - 1)) {
                expected.replace(at, 4, path);
            }
            EXPECT_EQ(problem, expected) << c.line;
        }
    }
    ::unlink(path);
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
