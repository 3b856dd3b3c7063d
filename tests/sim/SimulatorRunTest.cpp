#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "DriverProcess.h"
#include "FakeNetwork.h"

namespace {

using namespace std::chrono_literals;

// The simulator as people run it without a terminal, on a network of fake tools.
class SimulatorRunTest : public ::testing::Test {
protected:
    void SetUp() override {
        network.setArpTable("? (192.168.5.1) at 02:fc:aa:bb:cc:dd [ether] on eth0\n");
        network.answer("192.168.5.1", "up 0.364");
    }

    static void expectLines(const std::string& output, const std::vector<std::string>& lines) {
        for (const std::string& line : lines) {
            EXPECT_NE(output.find(line), std::string::npos) << line << "\nin:\n" << output;
        }
    }

    testsupport::FakeNetwork network;
};

TEST_F(SimulatorRunTest, RunsTheRealDriverShowsItsReportsAndEndsWithItsStatus) {
    testsupport::DriverProcess simulator(
        {"--for", "3", "--port", "0", "--unit", "1, Router, 02:FC:AA:BB:CC:DD"}, AMBRELIS_SIM_PATH);
    ASSERT_EQ(simulator.waitForExit(15s), 0) << simulator.output();
    expectLines(simulator.output(),
                {"s greeting ard:sim-1 ok\n", "s getUnits: sent setUnits with 1 units (",
                 "s ON  02:fc:aa:bb:cc:dd  Router  (update)\n",
                 "s NoOp 02:fc:aa:bb:cc:dd  Router  0.364 ms  IP 192.168.5.1\n",
                 "s sent close (--for 3 s are over)\n", "s log: arp Plugin shutting down...\n",
                 "s the driver ended: exit status 0\n"});
}

TEST_F(SimulatorRunTest, SigtermSendsCloseToALinkedDriver) {
    testsupport::DriverProcess simulator({"--port", "0"}, AMBRELIS_SIM_PATH);
    ASSERT_TRUE(simulator.waitForOutput("getUnits", 10s)) << simulator.output();
    ::kill(simulator.pid(), SIGTERM);
    ASSERT_EQ(simulator.waitForExit(10s), 0) << simulator.output();
    expectLines(simulator.output(), {"s sent close (got SIGTERM)\n"});
}

// Drivers that misbehave end with the simulator, and never outlive it.
TEST_F(SimulatorRunTest, AMisbehavingDriverIsReportedAndNeverLeftRunning) {
    struct Case {
        std::string script;
        int exitStatus;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {"exec 3<>/dev/tcp/$2/$3; printf 'ard:other\\r' >&3; exec sleep 30",
         1,
         {"s wrong greeting: expected \"ard:sim-1\\x0d\", got \"ard:other\\x0d\"\n",
          "s the driver was still running 5 s after close: killed the driver (killed by signal "
          "9"}},
        // Ending before it connects is a failure, however it ends.
        {"echo about to die; kill -9 $$",
         1,
         {"s driver output: about to die\n",
          "s the driver ended before it connected (killed by signal 9 (Killed)); exit status 1\n"}},
        {"exit 0", 1, {"s the driver ended before it connected (exit status 0); exit status 1\n"}},
    };
    const std::string driver = network.folder() + "/driver";
    for (const Case& c : cases) {
        std::ofstream(driver) << "#!/bin/bash\n" << c.script << "\n";
        ::chmod(driver.c_str(), 0755);
        testsupport::DriverProcess simulator({"--port", "0", "--for", "2", "--driver", driver},
                                             AMBRELIS_SIM_PATH);
        ASSERT_EQ(simulator.waitForExit(15s), c.exitStatus) << simulator.output();
        const std::string& output = simulator.output();
        expectLines(output, c.lines);
        const auto pidAt = output.find("(pid ");
        ASSERT_NE(pidAt, std::string::npos) << output;
        EXPECT_EQ(::kill(std::stoi(output.substr(pidAt + 5)), 0), -1) << "driver still there";
        EXPECT_EQ(errno, ESRCH);
    }
}

TEST_F(SimulatorRunTest, ABadUnitStartsNothing) {
    testsupport::DriverProcess simulator({"--port", "0", "--unit", "1, Router, 10.0.0"},
                                         AMBRELIS_SIM_PATH);
    EXPECT_EQ(simulator.waitForExit(5s), 2);
    EXPECT_EQ(simulator.output(), "");
}

}  // namespace
