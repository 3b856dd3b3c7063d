#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "BridgedNetwork.h"
#include "Tmux.h"

namespace {

using namespace std::chrono_literals;

// The README's demo command as a person runs it, in a terminal of 80 by 24, on a home network
// of namespaces with the system's own tools.
TEST(DemoTest, BuildsWhatItRunsAndShowsEveryHostOfTheLan) {
    if (!testsupport::Tmux::available()) {
        GTEST_SKIP() << "tmux is not installed";
    }
    const BridgedNetwork network(BridgedNetwork::home());
    if (!network.whyNot().empty()) {
        GTEST_SKIP() << "no network of namespaces: " << network.whyNot();
    }
    testsupport::Tmux terminal(
        "cd " ARP_SOURCE_DIR " && nsenter --net=" + network.namespacePath("driver") +
            " scripts/demo.sh; echo demo-exit=$?; sleep 60",
        80, 24);
    // A first build on a busy machine takes a while; a later one a few seconds.
    ASSERT_TRUE(terminal.waitFor("sweep 1, next in", 280s)) << terminal.screen().front();
    const std::filesystem::path build = std::string(ARP_SOURCE_DIR) + "/build-demo";
    EXPECT_TRUE(std::filesystem::exists(build / "arp-presence"));
    EXPECT_FALSE(std::filesystem::exists(build / "tests")) << "the demo built the tests";
    EXPECT_FALSE(std::filesystem::exists(build / "bench")) << "the demo built the benchmarks";

    for (const char* role : {"host1", "host2", "host3"}) {
        const BridgedNetwork::Host& host = network.host(role);
        EXPECT_TRUE(terminal.waitFor(host.mac, 15s)) << role;
    }
    EXPECT_TRUE(terminal.waitFor("default gateway", 1s));
    const auto screen = terminal.screen();
    for (const std::string& line : screen) {
        EXPECT_LT(line.size(), 80u) << line;
    }
    terminal.keys("q");
    EXPECT_TRUE(terminal.waitFor("demo-exit=0", 20s));
}

}  // namespace
