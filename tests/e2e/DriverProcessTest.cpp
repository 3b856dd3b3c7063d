#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "LoopbackServer.h"
#include "MultiPacketReader.h"

// The driver as the controller runs it: a child process with positional arguments, talking to
// a fake controller on loopback.
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testsupport::DriverProcess;
using testsupport::LoopbackServer;

// Every driver here sweeps a network of fake tools.
class DriverProcessTest : public ::testing::Test {
protected:
    testsupport::FakeNetwork network;
};

const char* const kOutOfBounds = "An unhandled OutOfBounds Exception was trapped globally.\n";

TEST_F(DriverProcessTest, OneArgumentPrintsTheBannerAndExitsZero) {
    DriverProcess driver({"anything"});
    ASSERT_EQ(driver.waitForExit(10s), 0);
    EXPECT_EQ(driver.output(),
              "Ambrelis Arp Table Presence Driver\r\n"
              "Copyright Tamsvale. All rights reserved.\r\n"
              "version 2 (build 003)\r\n");
}

TEST_F(DriverProcessTest, TooFewArgumentsEndInTheGuardWithTheStack) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {"a", "127.0.0.1"}, {"a", "127.0.0.1", "1"}}) {
        DriverProcess driver(arguments);
        ASSERT_EQ(driver.waitForExit(10s), 1) << arguments.size();
        const std::string& output = driver.output();
        EXPECT_EQ(output.rfind(kOutOfBounds, 0), 0u) << output;
        EXPECT_GT(output.size(), std::string(kOutOfBounds).size()) << "no stack lines";
    }
}

// What the controller has received once "getUnits" has come, or after five seconds. A link
// closed before that falls inside the driver's connection wait, which then runs to its limit.
testsupport::ControllerView readUntilGetUnits(LoopbackServer& server) {
    std::string bytes;
    testsupport::ControllerView view;
    for (int turn = 0; turn < 50; ++turn) {
        bytes += server.receive(100ms);
        view = testsupport::readControllerStream(bytes);
        if (!view.messages.empty() && view.messages.back().count("mcmd") &&
            view.messages.back().at("mcmd") == "getUnits") {
            break;
        }
    }
    return view;
}

TEST_F(DriverProcessTest, GreetsAsksForUnitsAndEndsWhenTheLinkFalls) {
    LoopbackServer server;
    DriverProcess driver({"", "127.0.0.1", std::to_string(server.port()), "conn-7"});
    ASSERT_TRUE(server.accept(5s));
    auto view = readUntilGetUnits(server);
    EXPECT_EQ(view.greeting, "ard:conn-7\r");
    EXPECT_EQ(testsupport::logLines(view),
              (std::vector<std::string>{"Tamsvale ISF connecting...",
                                        "Tamsvale driver version 2.0 (build 3) Ready..."}));
    ASSERT_EQ(view.messages.size(), 3u);
    EXPECT_EQ(view.messages[2], (std::map<std::string, std::string>{{"mcmd", "getUnits"}}));

    server.closeClient();
    EXPECT_EQ(driver.waitForExit(3s), 0);
    // With the link up nothing went to standard output but the pipe error.
    EXPECT_EQ(driver.output(), "\rAmbrelis Pipe Error\r\n");
}

TEST_F(DriverProcessTest, AnswersPingAndEndsOnClose) {
    LoopbackServer server;
    DriverProcess driver({"", "127.0.0.1", std::to_string(server.port()), "c"});
    ASSERT_TRUE(server.accept(5s));
    readUntilGetUnits(server);

    server.send("J\x0e\x00\x80mcmd\x04\x00"s + "ping" + "J\x0f\x00\x80mcmd\x05\x00"s + "close");
    const auto closedAt = std::chrono::steady_clock::now();
    ASSERT_EQ(driver.waitForExit(5s), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - closedAt, 2s);
    auto view = testsupport::readControllerStream(server.receive(1s));
    ASSERT_EQ(view.messages.size(), 2u);
    EXPECT_EQ(view.messages[0], (std::map<std::string, std::string>{{"mcmd", "PSrp"}}));
    EXPECT_EQ(testsupport::logLines(view), std::vector<std::string>{"arp Plugin shutting down..."});
    EXPECT_EQ(driver.output(), "");
}

// A port's text is truncated to its number; an empty address and a port without a number mean
// 127.0.0.1 and 20300; arguments past the fourth are not read.
TEST_F(DriverProcessTest, ArgumentsAreReadAsTheControllerPassesThem) {
    for (const bool defaults : {false, true}) {
        LoopbackServer server(defaults ? 20300 : 0);
        if (!server.ok()) {
            continue;  // port 20300 is busy on this machine
        }
        const std::string port = std::to_string(server.port()) + ".9";
        DriverProcess driver(
            defaults ? std::vector<std::string>{"x", "", "no number", "id"}
                     : std::vector<std::string>{"x", "127.0.0.1", port, "id", "extra", "more"});
        ASSERT_TRUE(server.accept(5s)) << defaults;
        EXPECT_EQ(readUntilGetUnits(server).greeting, "ard:id\r");
        server.closeClient();
        EXPECT_EQ(driver.waitForExit(3s), 0);
    }
}

TEST_F(DriverProcessTest, RefusedConnectionWaitsFifteenSecondsThenExitsZero) {
    DriverProcess driver({"x", "127.0.0.1", std::to_string(testsupport::refusedPort()), "id"});
    ASSERT_TRUE(driver.waitForOutput("\rAmbrelis Pipe Error\r\n", 3s));
    const auto refusedAt = std::chrono::steady_clock::now();
    ASSERT_EQ(driver.waitForExit(25s), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - refusedAt, 14s);
    EXPECT_EQ(driver.output(),
              "\rAmbrelis Pipe Error\r\n"
              "Tamsvale: Timeout waiting for answer from Ambrelis\r\n");
}

}  // namespace
