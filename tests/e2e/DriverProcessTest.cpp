#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <optional>
#include <thread>

#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "LoopbackServer.h"
#include "MultiPacketReader.h"
#include "ProcessStats.h"
#include "store/UnitListRecord.h"

// The driver as the controller runs it: a child process with positional arguments, talking to
// a fake controller on loopback, on a network of fake tools.
namespace {

using namespace std::chrono_literals;
using Messages = std::vector<std::string>;

const std::string kPing = testsupport::multiPacket({{"mcmd", "ping"}});

// A tool the driver leaves running when it ends (a ping that hangs) comes to us, and is ended.
class DriverProcessTest : public ::testing::Test {
protected:
    DriverProcessTest() { testsupport::adoptOrphans(); }
    void TearDown() override {
        driver.reset();
        testsupport::endChildren();
    }

    testsupport::FakeNetwork network;
    testsupport::LoopbackServer server;
    std::optional<testsupport::DriverProcess> driver;
};

// Without a link there is nothing to run: one argument prints the banner, too few end in the
// guard (its line, then the stack), and a controller that refuses or never answers is waited for
// 15 s. A reader of standard output that has gone away must not kill the driver by signal.
TEST_F(DriverProcessTest, WithoutALinkTheCommandLineDecidesHowTheRunEnds) {
    ASSERT_TRUE(server.fillBacklog());
    const std::string timeout = "Tamsvale: Timeout waiting for answer from Ambrelis\r\n";
    const std::string refused = std::to_string(testsupport::refusedPort());
    const std::string banner =
        "Ambrelis Arp Table Presence Driver\r\nCopyright Tamsvale. All "
        "rights reserved.\r\nversion 2 (build 003)\r\n";
    const std::string deadReader = "set -o pipefail; { sleep 0.5; exec \"$0\" x; } | true";
    // The arguments, through a shell for "-c"; the status; the output, or its start if it is 1.
    const std::vector<std::tuple<Messages, int, std::string>> cases = {
        {{"anything"}, 0, banner},
        {{}, 1, "An unhandled OutOfBounds Exception was trapped globally.\n"},
        // A refusal does not cut the wait short; a connect that never completes does not block.
        {{"x", "127.0.0.1", refused, "id"}, 0, "\rAmbrelis Pipe Error\r\n" + timeout},
        {{"x", "127.0.0.1", std::to_string(server.port()), "id"}, 0, timeout},
        {{"-c", deadReader, ARP_PRESENCE_PATH}, 0, ""}};
    std::list<testsupport::DriverProcess> processes;
    for (const auto& [arguments, status, output] : cases) {
        processes.emplace_back(
            arguments, std::ranges::count(arguments, "-c") ? "/bin/bash" : ARP_PRESENCE_PATH);
    }
    // Start delay of up to half a second, the wait of 15, the final second of pumping.
    std::this_thread::sleep_for(15s);
    // Only the two that wait for a link are running still.
    const auto running = [](auto& process) { return !process.waitForExit(0ms); };
    EXPECT_EQ(std::count_if(processes.begin(), processes.end(), running), 2);
    auto process = processes.begin();
    for (const auto& [arguments, status, output] : cases) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        EXPECT_EQ(process->waitForExit(3s), status);
        EXPECT_EQ(process->output().substr(0, output.size()), output);
        EXPECT_EQ(process->output().size() > output.size(), status == 1) << process->output();
        ++process;
    }
}

// The first sweep comes at once and the next a little over 30 s later, the first to ping the
// units of a list; the pump sleeps between. "close" does not wait for a ping that hangs. A port
// is truncated to its number, and arguments past the fourth are not read.
TEST_F(DriverProcessTest, SweepsEveryHalfMinuteFromTheGreetingToClose) {
    network.answer("10.4.0.1", "up 0.125");
    network.answer("10.4.0.2", "hang 30");
    driver.emplace(Messages{"x", "127.0.0.1", std::to_string(server.port()) + ".9", "id", "x"});
    ASSERT_TRUE(server.accept(5s));
    const std::string log = "mcmd=WrtL Valu=2 DATA=";
    EXPECT_EQ(server.take(3, 5s),
              (Messages{log + "Tamsvale ISF connecting...",
                        log + "Tamsvale driver version 2.0 (build 3) Ready...", "mcmd=getUnits"}));
    EXPECT_EQ(server.greeting(), "ard:id\r");
    const double cpuBefore = testsupport::cpuSeconds(driver->pid());
    server.send(testsupport::multiPacket(
        {{"mcmd", "setUnits"},
         {"DATA", UnitListRecord::bytes({{1, "10.4.0.1", "Lamp"}, {2, "10.4.0.2", "Radio"}})}}));
    EXPECT_EQ(server.take(4, 40s),
              (Messages{log + "creating a new ping device for unit with Address: 10.4.0.1",
                        log + "creating a new ping device for unit with Address: 10.4.0.2",
                        "mcmd=ON addr=10.4.0.1 UpDt=true",
                        "mcmd=NoOp UPN0=IP UPV0=10.4.0.1  UPN1=response time UPV1=0.125 "
                        "addr=10.4.0.1"}));
    // A pump that polls instead of waiting would burn much of the half minute between sweeps.
    EXPECT_LT(testsupport::cpuSeconds(driver->pid()) - cpuBefore, 1.0);

    server.send(kPing + testsupport::multiPacket({{"mcmd", "close"}}));
    ASSERT_EQ(driver->waitForExit(3s), 0);
    EXPECT_EQ(server.take(SIZE_MAX, 0ms),
              (Messages{"mcmd=PSrp", log + "arp Plugin shutting down..."}));
    EXPECT_EQ(driver->output(), "");
    // Both sweeps' broadcasts and the pings of both units.
    EXPECT_EQ(network.pingCalls().size(), 4u);
}

}  // namespace
