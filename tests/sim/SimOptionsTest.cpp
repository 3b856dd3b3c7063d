#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "tools/sim/SimOptions.h"

namespace {

using Outcome = sim::SimOptions::Outcome;

TEST(SimOptionsTest, ReadsValuesInBothFormsAndStopsAtHelpAndVersion) {
    sim::SimOptions options;
    std::string message;
    ASSERT_EQ(
        options.parse({"--port", "0", "--id=c-9", "--for", "2.5", "--driver", "/x/d", "--unit",
                       "4,a,10.0.0.4", "--unit=5,b,aa:bb:cc:dd:ee:ff", "--log-lines", "3"},
                      message),
        Outcome::Run)
        << message;
    EXPECT_EQ(options.port, 0);
    EXPECT_EQ(options.connectionId, "c-9");
    EXPECT_EQ(options.runSeconds, 2.5);
    EXPECT_EQ(options.driverToStart(), "/x/d");
    EXPECT_EQ(options.units.units().size(), 2u);
    EXPECT_EQ(options.logLines, 3u);
    EXPECT_EQ(sim::SimOptions().parse({"--port", "1", "--help", "--bogus"}, message),
              Outcome::Help);
    EXPECT_EQ(sim::SimOptions().parse({"--version"}, message), Outcome::Version);
}

TEST(SimOptionsTest, EveryBadArgumentIsAnErrorThatSaysWhich) {
    std::string file = "/tmp/units-XXXXXX";
    const int fd = ::mkstemp(file.data());
    ASSERT_GE(fd, 0);
    ::close(fd);
    std::ofstream(file) << "1, NAS, nas.lan\n";
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--bogus"}, "ambrelis-sim: unknown option --bogus (see --help)"},
        {{"--port"}, "ambrelis-sim: --port needs a value (see --help)"},
        {{"--port", "65536"}, "ambrelis-sim: --port 65536: not a port number from 0 to 65535"},
        {{"--port", "12x"}, "ambrelis-sim: --port 12x: not a port number from 0 to 65535"},
        {{"--for", "0"}, "ambrelis-sim: --for 0: not a number of seconds above 0"},
        {{"--for", "nan"}, "ambrelis-sim: --for nan: not a number of seconds above 0"},
        {{"--log-lines", "0"}, "ambrelis-sim: --log-lines 0: not a count from 1 to 1000"},
        {{"--id", "a\rb"},
         "ambrelis-sim: --id a\rb: a connection id cannot hold a carriage return"},
        {{"--unit", "1,a,b", "--unit", "1,c,d"},
         "ambrelis-sim: --unit 1,c,d: uniqueid 1 is already used at --unit \"1,a,b\""},
        {{"--units", "/nonexistent/units"},
         "/nonexistent/units: cannot read: No such file or directory"},
        {{"--units", file, "--unit", "2, Box, NAS.Lan"},
         "ambrelis-sim: --unit 2, Box, NAS.Lan: address NAS.Lan is already unit 1 at " + file +
             ":1"},
        {{"--unit", "1, Box, 10.0.0.1", "--units", file},
         file + ":1: uniqueid 1 is already used at --unit \"1, Box, 10.0.0.1\""},
        {{"--unit", "x,a,b", "--port", "70000", "--units", "/nonexistent/units", "--bogus", "--x"},
         "ambrelis-sim: --unit x,a,b: uniqueid \"x\" is not a whole number from 1 to "
         "9007199254740991\nambrelis-sim: --port 70000: not a port number from 0 to 65535\n"
         "/nonexistent/units: cannot read: No such file or directory\nambrelis-sim: unknown option "
         "--bogus (see --help)"},
        {{"--port", "x", "--help"}, "ambrelis-sim: --port x: not a port number from 0 to 65535"},
    };
    for (const auto& [arguments, expected] : cases) {
        std::string message;
        EXPECT_EQ(sim::SimOptions().parse(arguments, message), Outcome::Error) << expected;
        EXPECT_EQ(message, expected);
    }
    ::unlink(file.c_str());
}

}  // namespace
