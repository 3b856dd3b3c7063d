#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "LoopbackServer.h"
#include "MultiPacketReader.h"
#include "ProcessStats.h"
#include "ReceivedMessages.h"
#include "StreamTally.h"
#include "UnitList.h"

// The driver as the controller runs it: a child process with positional arguments, talking to
// a fake controller on loopback.
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Messages = std::vector<std::string>;
using testsupport::DriverProcess;
using testsupport::multiPacket;

// The controller's end of one run.
struct Controller {
    explicit Controller(int port = 0) : server(port) {}

    testsupport::LoopbackServer server;
    testsupport::ReceivedMessages messages{server};
};

// Every driver here sweeps a network of fake tools.
class DriverProcessTest : public ::testing::Test {
protected:
    static std::vector<std::string> arguments(const Controller& controller) {
        return {"", "127.0.0.1", std::to_string(controller.server.port()), "conn-7"};
    }

    static std::string probe(const std::string& address) {
        return testsupport::FakeNetwork::probeCall(address);
    }
    const std::string broadcast = testsupport::FakeNetwork::kBroadcastCall;

    testsupport::FakeNetwork network;
};

const char* const kOutOfBounds = "An unhandled OutOfBounds Exception was trapped globally.\n";
const char* const kGreetingLines[] = {
    "mcmd=WrtL Valu=2 DATA=Tamsvale ISF connecting...",
    "mcmd=WrtL Valu=2 DATA=Tamsvale driver version 2.0 (build 3) Ready...", "mcmd=getUnits"};

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

// A port's text is truncated to its number; an empty address and a port without a number mean
// 127.0.0.1 and 20300; arguments past the fourth are not read.
TEST_F(DriverProcessTest, ArgumentsAreReadAsTheControllerPassesThem) {
    for (const bool defaults : {false, true}) {
        Controller controller(defaults ? 20300 : 0);
        if (!controller.server.ok()) {
            continue;  // port 20300 is busy on this machine
        }
        const std::string port = std::to_string(controller.server.port()) + ".9";
        DriverProcess driver(
            defaults ? std::vector<std::string>{"x", "", "no number", "id"}
                     : std::vector<std::string>{"x", "127.0.0.1", port, "id", "extra", "more"});
        ASSERT_TRUE(controller.server.accept(5s)) << defaults;
        controller.messages.take(3, 5s);
        EXPECT_EQ(controller.messages.greeting(), "ard:id\r");
        controller.server.closeClient();
        EXPECT_EQ(driver.waitForExit(3s), 0);
    }
}

// Waits for the second sweep, which comes a little over 30 seconds after the first: only then
// are the ping units of the list pinged.
TEST_F(DriverProcessTest, ReportsArpHostsAndUnitsFromStartToClose) {
    network.setArpTable("? (10.0.0.1) at 02:00:00:00:00:01 [ether] on eth0\n");
    network.answer("10.0.0.1", "up 0.050");
    network.answer("10.4.0.1", "up 0.125");
    network.answer("10.4.0.2", "up 0.125");
    Controller controller;
    DriverProcess driver(arguments(controller));
    ASSERT_TRUE(controller.server.accept(5s));

    Messages expected(std::begin(kGreetingLines), std::end(kGreetingLines));
    expected.push_back("mcmd=ON addr=02:00:00:00:00:01 UpDt=true");
    expected.push_back(
        "mcmd=NoOp UPN0=IP UPV0=10.0.0.1  UPN1=response time UPV1=0.050 addr=02:00:00:00:00:01");
    EXPECT_EQ(controller.messages.take(expected.size(), 5s), expected);
    EXPECT_EQ(controller.messages.greeting(), "ard:conn-7\r");

    controller.server.send(
        multiPacket({{"mcmd", "setUnits"},
                     {"DATA", testsupport::unitList({
                                  {1, "10.4.0.1", "Lamp"},
                                  {2, "10.4.0.2", "Radio"},
                                  {3, "10.4.0.3", "Heater"},
                                  {4, "02:00:00:00:00:01", "Phone"},
                                  {5, "02:00:00:00:00:09", "Tablet"},
                              })}}) +
        multiPacket({{"mcmd", "UnitDeleted"}, {"addr", "10.4.0.2"}, {"UnID", "2"}}));
    expected = {"mcmd=WrtL Valu=2 DATA=creating a new ping device for unit with Address: 10.4.0.1",
                "mcmd=WrtL Valu=2 DATA=creating a new ping device for unit with Address: 10.4.0.2",
                "mcmd=WrtL Valu=2 DATA=creating a new ping device for unit with Address: 10.4.0.3",
                "addr=02:00:00:00:00:01 UpDt=true mcmd=ON",
                "mcmd=OFF addr=02:00:00:00:00:09 UpDt=true",
                "mcmd=WrtL Valu=2 DATA=pings will no longer be sent to: 10.4.0.2"};
    EXPECT_EQ(controller.messages.take(expected.size(), 5s), expected);

    // The arp host answers as before, so its second ping sends nothing.
    expected = {"mcmd=NoOp UPN0=IP UPV0=10.4.0.1  UPN1=response time UPV1=0.125 addr=10.4.0.1",
                "mcmd=OFF addr=10.4.0.3 UpDt=true", "mcmd=ON addr=10.4.0.1 UpDt=true"};
    Messages secondSweep = controller.messages.take(expected.size(), 40s);
    std::sort(secondSweep.begin(), secondSweep.end());
    EXPECT_EQ(secondSweep, expected);

    controller.server.send(multiPacket({{"mcmd", "close"}}));
    ASSERT_EQ(driver.waitForExit(5s), 0);
    EXPECT_EQ(controller.messages.take(SIZE_MAX, 0ms),
              Messages{"mcmd=WrtL Valu=2 DATA=arp Plugin shutting down..."});
    auto calls = network.pingCalls();
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (Messages{broadcast, broadcast, probe("10.0.0.1"), probe("10.0.0.1"),
                               probe("10.4.0.1"), probe("10.4.0.3")}));
    EXPECT_EQ(driver.output(), "");
}

// The last turn of the run loop and the one-second drain take at most 1.25 s. In the sanitizer
// build the leak check at exit and the slower pump come on top; its shadow memory and quarantine
// dwarf the driver's own, and its slower loop needs longer to back the link up.
#ifdef __SANITIZE_ADDRESS__
constexpr auto kEndLimit = 1750ms;
constexpr bool kMemoryMeasured = false;
constexpr auto kLoopUnread = 6s;
#else
constexpr auto kEndLimit = 1500ms;
constexpr bool kMemoryMeasured = true;
constexpr auto kLoopUnread = 1500ms;
#endif

// A ping that runs for ten seconds is still running when the driver is told to stop, or loses
// its link; the driver leaves it behind.
TEST_F(DriverProcessTest, EndsWithinASecondAndAHalfWithoutWaitingForItsPings) {
    network.setArpTable("? (10.0.0.1) at 02:00:00:00:00:01 [ether] on eth0\n");
    network.answer("10.0.0.1", "hang 10");
    for (const bool byClose : {true, false}) {
        network.forgetCalls();
        Controller controller;
        DriverProcess driver(arguments(controller));
        ASSERT_TRUE(controller.server.accept(5s));
        controller.messages.take(3, 5s);
        for (int turn = 0; turn < 100 && network.pingCalls().size() < 2; ++turn) {
            std::this_thread::sleep_for(20ms);
        }
        ASSERT_EQ(network.pingCalls(), (Messages{broadcast, probe("10.0.0.1")}));

        if (byClose) {
            controller.server.send(multiPacket({{"mcmd", "ping"}}) +
                                   multiPacket({{"mcmd", "close"}}));
        } else {
            controller.server.closeClient();
        }
        const auto endedAt = Clock::now();
        ASSERT_EQ(driver.waitForExit(5s), 0) << byClose;
        EXPECT_LT(Clock::now() - endedAt, kEndLimit) << byClose;
        if (byClose) {
            EXPECT_EQ(controller.messages.take(SIZE_MAX, 0ms),
                      (Messages{"mcmd=PSrp", "mcmd=WrtL Valu=2 DATA=arp Plugin shutting down..."}));
        }
        // With the link up nothing goes to standard output but the error of a fallen link.
        EXPECT_EQ(driver.output(), byClose ? "" : "\rAmbrelis Pipe Error\r\n");
    }
}

// 30 MB of "ping" is answered in full however a controller writes it, also by a controller that
// reads nothing for two seconds: meanwhile the driver stops reading, and its memory stays small.
TEST_F(DriverProcessTest, FloodsOfPingAreAnsweredInFullWithBoundedMemory) {
    struct Case {
        const char* name;
        std::size_t mostBytesPerWrite;  // 0: the whole flood in one write
        std::chrono::milliseconds unread;
    };
    const std::string ping = multiPacket({{"mcmd", "ping"}});
    // More than two turns of reading hold, so that the limit of a turn falls inside messages.
    std::string flood;
    for (std::size_t i = 0; i < 30'000'000 / ping.size(); ++i) {
        flood += ping;
    }
    std::mt19937 random(6);
    for (const Case& c : {Case{"one write", 0, 0ms}, Case{"writes cut at any byte", 65536, 0ms},
                          Case{"stalled controller", 0, 2000ms}}) {
        Controller controller;
        DriverProcess driver(arguments(controller));
        ASSERT_TRUE(controller.server.accept(5s)) << c.name;
        std::thread writer([&] {
            for (std::size_t at = 0; at < flood.size();) {
                std::size_t piece = flood.size();
                if (c.mostBytesPerWrite > 0) {
                    piece =
                        std::uniform_int_distribution<std::size_t>(1, c.mostBytesPerWrite)(random);
                }
                controller.server.send(flood.substr(at, piece));
                at += piece;
            }
        });
        long mostKb = 0;
        testsupport::StreamTally tally;
        const auto readFrom = Clock::now() + c.unread;
        auto progressAt = readFrom;
        while (tally.answers < flood.size() / ping.size() && Clock::now() - progressAt < 4s) {
            mostKb = std::max(mostKb, testsupport::residentKilobytes(driver.pid()));
            if (Clock::now() < readFrom) {
                std::this_thread::sleep_for(10ms);
                continue;
            }
            const std::size_t before = tally.answers;
            tally.feed(controller.server.receive(10ms));
            progressAt = tally.answers > before ? Clock::now() : progressAt;
        }
        EXPECT_EQ(tally.answers, flood.size() / ping.size()) << c.name;
        EXPECT_TRUE(!kMemoryMeasured || mostKb < 64 * 1024) << c.name << ": " << mostKb << " kB";
        if (tally.answers < flood.size() / ping.size()) {
            ::kill(driver.pid(), SIGKILL);  // a stuck driver never takes the rest of the flood
        }
        controller.server.closeClient();
        writer.join();
        EXPECT_EQ(driver.waitForExit(5s), 0) << c.name;
    }
}

// Input that turns into log lines, for good (a lone byte logs the malformed line forever) or many
// times over (36 bytes of log line for each byte): while the controller reads nothing those lines
// are given up and memory stays bounded; once it reads, one line counts them, and answers were
// never given up.
TEST_F(DriverProcessTest, LogLinesAloneAreGivenUpWhileTheControllerDoesNotRead) {
    struct Case {
        const char* name;
        std::string input;
        std::size_t answers;
    };
    std::string pairs;
    for (int i = 0; i < 1 << 19; ++i) {
        pairs += "\x01\x02";
    }
    for (const Case& c :
         {Case{"lone byte", "Q", 0}, Case{"a megabyte of malformed two-byte messages",
                                          pairs + multiPacket({{"mcmd", "ping"}}), 1}}) {
        Controller controller;
        DriverProcess driver(arguments(controller));
        ASSERT_TRUE(controller.server.accept(5s));
        controller.server.send(c.input);
        long mostKb = 0;
        for (const auto until = Clock::now() + kLoopUnread; Clock::now() < until;) {
            std::this_thread::sleep_for(20ms);
            mostKb = std::max(mostKb, testsupport::residentKilobytes(driver.pid()));
        }
        testsupport::StreamTally tally;
        for (const auto until = Clock::now() + 10s;
             Clock::now() < until &&
             (tally.dropNotes == 0 || tally.malformed <= 1000 || tally.answers < c.answers);) {
            tally.feed(controller.server.receive(10ms));
        }
        EXPECT_TRUE(!kMemoryMeasured || mostKb < 100 * 1024) << c.name << ": " << mostKb << " kB";
        EXPECT_EQ(tally.dropNotes, 1u) << c.name;
        EXPECT_GT(tally.dropped, 0u) << c.name;
        EXPECT_GT(tally.malformed, 1000u) << c.name;
        EXPECT_EQ(tally.answers, c.answers) << c.name;
    }
}

// A refused connection ends the wait no sooner than one that never completes: both run to the
// limit. The one that never completes also shows that connecting does not block the driver.
TEST_F(DriverProcessTest, WithoutALinkInFifteenSecondsPrintsTheTimeOutAndExitsZero) {
    testsupport::LoopbackServer silent;
    ASSERT_TRUE(silent.fillBacklog());
    const auto startedAt = Clock::now();
    std::array<DriverProcess, 2> drivers{
        DriverProcess({"x", "127.0.0.1", std::to_string(testsupport::refusedPort()), "id"}),
        DriverProcess({"x", "127.0.0.1", std::to_string(silent.port()), "id"})};
    const std::array<const char*, 2> outputs{"\rAmbrelis Pipe Error\r\n", ""};

    std::array<std::optional<Clock::duration>, 2> endedAfter;
    while (Clock::now() - startedAt < 25s && !(endedAfter[0] && endedAfter[1])) {
        for (std::size_t i = 0; i < drivers.size(); ++i) {
            if (!endedAfter[i] && drivers[i].waitForExit(10ms)) {
                endedAfter[i] = Clock::now() - startedAt;
            }
        }
    }
    for (std::size_t i = 0; i < drivers.size(); ++i) {
        ASSERT_TRUE(endedAfter[i]) << i;
        EXPECT_EQ(drivers[i].waitForExit(0ms), 0) << i;
        // Start delay of up to half a second, the wait of 15, the final second of pumping.
        EXPECT_GE(*endedAfter[i], 15s) << i;
        EXPECT_LT(*endedAfter[i], 18s) << i;
        EXPECT_EQ(drivers[i].output(), std::string(outputs[i]) +
                                           "Tamsvale: Timeout waiting for answer from Ambrelis\r\n")
            << i;
    }
}

}  // namespace
