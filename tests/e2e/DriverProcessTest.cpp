#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <thread>

#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "LoopbackServer.h"
#include "ProcessStats.h"

// The driver as the controller runs it: a child process with positional arguments, talking to
// a fake controller on loopback, on a network of fake tools.
namespace {

using namespace std::chrono_literals;
using Messages = std::vector<std::string>;

// A tool the driver leaves running when it ends (a ping that hangs) comes to us, and is ended.
class DriverProcessTest : public ::testing::Test {
protected:
    DriverProcessTest() { testsupport::adoptOrphans(); }
    void TearDown() override { testsupport::endChildren(); }

    testsupport::FakeNetwork network;
    testsupport::LoopbackServer server;
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

}  // namespace
