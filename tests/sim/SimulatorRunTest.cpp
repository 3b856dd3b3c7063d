#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "Tmux.h"

namespace {

using namespace std::chrono_literals;

// The simulator on a network of fake tools, with the real driver or a script in its place.
class SimulatorRunTest : public ::testing::Test {
protected:
    void SetUp() override {
        network.setArpTable("? (192.168.5.1) at 02:fc:aa:bb:cc:dd [ether] on eth0\n");
        network.answer("192.168.5.1", "up 0.364");
    }

    std::string driver(const std::string& script) const {
        const std::string path = network.folder() + "/driver";
        std::ofstream(path) << "#!/bin/bash\n" << script << "\n";
        ::chmod(path.c_str(), 0755);
        return path;
    }

    // Runs it without a terminal, where it writes a line per event, and checks that it ends with
    // `exitStatus` and leaves no driver behind; a bad argument starts none.
    static void run(std::vector<std::string> arguments, int exitStatus,
                    const std::vector<std::string>& lines, bool sigterm = false) {
        arguments.insert(arguments.end(), {"--port", "0"});
        testsupport::DriverProcess simulator(arguments, AMBRELIS_SIM_PATH);
        if (sigterm) {
            ASSERT_TRUE(simulator.waitForOutput("getUnits", 10s)) << simulator.output();
            ::kill(simulator.pid(), SIGTERM);
        }
        ASSERT_EQ(simulator.waitForExit(15s), exitStatus) << simulator.output();
        const std::string& output = simulator.output();
        for (const std::string& line : lines) {
            EXPECT_NE(output.find(line), std::string::npos) << line << "\nin:\n" << output;
        }
        const auto pidAt = output.find("(pid ");
        ASSERT_EQ(pidAt == std::string::npos, exitStatus == 2) << output;
        if (pidAt != std::string::npos) {
            EXPECT_EQ(::kill(std::stoi(output.substr(pidAt + 5)), 0), -1) << "driver still there";
        }
    }

    testsupport::FakeNetwork network;
};

TEST_F(SimulatorRunTest, RunsTheDriverShowsItsReportsAndEndsWithItsStatus) {
    run({"--for", "3", "--unit", "1, Router, 02:FC:AA:BB:CC:DD"}, 0,
        {"s greeting ard:sim-1 ok\n", "s getUnits: sent setUnits with 1 units (",
         "s ON  02:fc:aa:bb:cc:dd  Router  (update)\n",
         "s NoOp 02:fc:aa:bb:cc:dd  Router  0.364 ms  IP 192.168.5.1\n",
         "s sent close (--for 3 s are over)\n", "s log: arp Plugin shutting down...\n",
         "s the driver ended: exit status 0\n"});
    run({}, 0, {"s sent close (got SIGTERM)\n"}, true);
    run({"--unit", "1, Router, 10.0.0"}, 2, {});
}

// However it ends before it connects, that is a failure.
TEST_F(SimulatorRunTest, AMisbehavingDriverFailsTheRunAndNeverOutlivesIt) {
    run({"--for", "2", "--driver",
         driver("exec 3<>/dev/tcp/$2/$3; printf 'ard:x\\r' >&3; sleep 30")},
        1,
        {"s wrong greeting: expected \"ard:sim-1\\x0d\", got \"ard:x\\x0d\"\n",
         "s the driver was still running 5 s after close: killed the driver (killed by signal 9"});
    run({"--driver", driver("echo about to die; kill -9 $$")}, 1,
        {"s driver output: about to die\n",
         "s the driver ended before it connected (killed by signal 9 (Killed)); exit status 1\n"});
    run({"--driver", driver("exit 0")}, 1,
        {"s the driver ended before it connected (exit status 0)"});
}

// In a terminal of 80 by 24, the smallest it is made for. The driver waits for a go before it
// starts, so that a key pressed before the link has nowhere to go. Then fourteen hosts whose pings
// take 2.8 s keep its first sweep busy for 5.6 s after the fill, longer than a driver that is
// merely slow to end needs, and close waits for them.
TEST_F(SimulatorRunTest, OnAScreenItShowsTheTableTakesKeysAndLetsABusySweepFinish) {
    if (!testsupport::Tmux::available()) {
        GTEST_SKIP() << "tmux is not installed";
    }
    std::string arp = "? (192.168.5.1) at 02:fc:aa:bb:cc:dd [ether] on eth0\n";
    for (int i = 10; i < 24; ++i) {
        const std::string ip = "192.168.5." + std::to_string(i);
        arp += "? (" + ip + ") at 02:fc:aa:bb:cc:" + std::to_string(i) + " [ether] on eth0\n";
        network.answer(ip, "hang 2.8");
    }
    network.setArpTable(arp);
    const std::string go = network.folder() + "/go";
    const std::string script =
        "until [ -e " + go + " ]; do sleep 0.1; done; exec " ARP_PRESENCE_PATH " \"$@\"";
    testsupport::Tmux terminal(AMBRELIS_SIM_PATH
                                   " --port 0 --unit '1, Router, 192.168.5.1' --driver " +
                                   driver(script) + "; echo sim-exit=$?; sleep 60",
                               80, 24);
    ASSERT_TRUE(terminal.waitFor("waiting for it to connect", 5s));
    terminal.keys("d");
    ASSERT_TRUE(terminal.waitFor("no link: nothing sent", 5s));
    std::ofstream{go};
    ASSERT_TRUE(terminal.waitFor("(Router)", 10s));
    auto screen = terminal.screen();
    ASSERT_GE(screen.size(), 5u);
    for (const std::string& line : screen) {
        EXPECT_LT(
            std::count_if(line.begin(), line.end(), [](char c) { return (c & 0xC0) != 0x80; }), 80)
            << line;
    }
    EXPECT_EQ(screen[0].rfind("ambrelis-sim ", 0), 0u) << screen[0];
    EXPECT_NE(screen[0].find(", linked  up "), std::string::npos) << screen[0];
    EXPECT_EQ(screen[1].rfind("sweep 1, next in ", 0), 0u) << screen[1];
    EXPECT_NE(screen[1].find("debug off"), std::string::npos) << screen[1];
    EXPECT_EQ(screen[4].substr(0, 65),
              "192.168.5.1       Router            -     first ping at sweep 2");
    terminal.keys("q");
    ASSERT_TRUE(terminal.waitFor("the driver may finish its sweep first; waiting up to 14s", 5s));
    ASSERT_TRUE(terminal.waitFor("sim-exit=", 20s));
    // The full screen has scrolled by the lines written after it; its status line stays.
    EXPECT_TRUE(terminal.waitFor("sim-exit=0", 1s));
    EXPECT_TRUE(terminal.waitFor("the driver ended: exit status 0", 1s));
    EXPECT_TRUE(
        terminal.waitFor("192.168.5.1       Router            -     no report before close", 1s));
}

}  // namespace
