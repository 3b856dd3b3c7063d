#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "Tmux.h"

namespace {

using namespace std::chrono_literals;

// The simulator in a terminal of 80 by 24, the smallest it is made for, on fake tools.
class SimulatorScreenTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testsupport::Tmux::available()) {
            GTEST_SKIP() << "tmux is not installed";
        }
    }

    static std::string simulator(const std::string& arguments) {
        return std::string(AMBRELIS_SIM_PATH) + " --port 0 " + arguments +
               "; echo sim-exit=$?; sleep 60";
    }

    static void expectWhole(const std::vector<std::string>& screen) {
        ASSERT_GE(screen.size(), 4u);
        for (const std::string& line : screen) {
            std::size_t characters = 0;
            for (const char c : line) {
                characters += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
            }
            EXPECT_LT(characters, 80u) << line;
        }
        EXPECT_EQ(screen[3],
                  "ADDRESS           NAME              STATE RESPONSE   IP              CHANGED");
    }

    static std::string lineWith(const std::vector<std::string>& screen, const std::string& text) {
        for (const std::string& line : screen) {
            if (line.find(text) != std::string::npos) {
                return line;
            }
        }
        return "";
    }

    testsupport::FakeNetwork network;
};

TEST_F(SimulatorScreenTest, AKeyThatCouldNotBeSentChangesNothing) {
    const std::string driver = network.folder() + "/driver";
    std::ofstream(driver) << "#!/bin/sh\nexec sleep 30\n";
    ::chmod(driver.c_str(), 0755);
    testsupport::Tmux terminal(simulator("--driver " + driver), 80, 24);
    ASSERT_TRUE(terminal.waitFor("waiting for it to connect", 5s));
    terminal.keys("d");
    ASSERT_TRUE(terminal.waitFor("no link: nothing sent", 5s));
    const auto screen = terminal.screen();
    expectWhole(screen);
    EXPECT_NE(screen[1].find("debug off"), std::string::npos) << screen[1];
    terminal.keys("q");
    EXPECT_TRUE(terminal.waitFor("sim-exit=1", 5s));
}

TEST_F(SimulatorScreenTest, CloseDuringABusySweepWaitsForTheDriverToFinishIt) {
    // Fourteen hosts whose pings take 2.8 s keep the driver's first sweep busy for 5.6 s after
    // its fill, longer than a driver that is merely slow to end needs.
    std::string arp = "? (192.168.5.1) at 02:fc:aa:bb:cc:dd [ether] on eth0\n";
    network.answer("192.168.5.1", "up 0.364");
    for (int i = 10; i < 24; ++i) {
        const std::string ip = "192.168.5." + std::to_string(i);
        arp += "? (" + ip + ") at 02:fc:aa:bb:cc:" + std::to_string(i) + " [ether] on eth0\n";
        network.answer(ip, "hang 2.8");
    }
    network.setArpTable(arp);
    testsupport::Tmux terminal(simulator("--unit '1, Router, 192.168.5.1'"), 80, 24);
    ASSERT_TRUE(terminal.waitFor("(Router)", 10s));

    auto screen = terminal.screen();
    expectWhole(screen);
    EXPECT_EQ(screen[0].rfind("ambrelis-sim ", 0), 0u) << screen[0];
    EXPECT_NE(screen[0].find(", linked  up "), std::string::npos) << screen[0];
    EXPECT_EQ(screen[1].rfind("sweep 1, next in ", 0), 0u) << screen[1];
    EXPECT_NE(lineWith(screen, "192.168.5.1       Router").find("first ping at sweep 2, in "),
              std::string::npos);

    terminal.keys("q");
    ASSERT_TRUE(terminal.waitFor("the driver may finish its sweep first; waiting up to 14s", 5s));
    ASSERT_TRUE(terminal.waitFor("sim-exit=", 20s));
    screen = terminal.screen();
    EXPECT_NE(lineWith(screen, "sim-exit=0"), "") << lineWith(screen, "the driver");
    // The full screen has scrolled by the lines written after it; its status line stays.
    EXPECT_NE(lineWith(screen, "the driver ended: exit status 0"), "");
    EXPECT_NE(lineWith(screen, "Router").find("no report before close"), std::string::npos);
}

}  // namespace
