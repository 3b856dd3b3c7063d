#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BridgedNetwork.h"
#include "DriverProcess.h"
#include "InNamespace.h"
#include "LoopbackServer.h"
#include "MultiPacketReader.h"
#include "ReceivedMessages.h"
#include "RunCommand.h"
#include "host/Ref.h"
#include "host/Shell.h"
#include "scan/SystemTools.h"

// The driver on a home network as it comes (BridgedNetwork::home()), with the system's own
// ping, arp and fping, and the controller on loopback inside the driver's namespace.
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Made once per process and shared by the suite's tests.
std::unique_ptr<BridgedNetwork> network;

double seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// The test's thread enters the driver's namespace first, so that its sockets and children live
// there.
class RealNetworkTest : private InNamespace, public ::testing::Test {
protected:
    RealNetworkTest()
        : InNamespace(network->whyNot().empty() ? network->namespacePath("driver") : "") {}

    static void SetUpTestSuite() {
        network = std::make_unique<BridgedNetwork>(BridgedNetwork::home());
    }
    static void TearDownTestSuite() { network.reset(); }

    void SetUp() override {
        if (!network->whyNot().empty()) {
            GTEST_SKIP() << "no network of namespaces: " << network->whyNot();
        }
        ASSERT_TRUE(entered()) << "cannot enter " << network->namespacePath("driver");
        ASSERT_EQ(network->forgetNeighbours(), "");
    }
};

// The driver process under a German locale, asked "ping" every 200 ms from its start into the
// broadcast of its second sweep, and then told to close: it finds every host of both LANs and
// the uplink, reports those that answer echo ON and the one that does not OFF, answers every
// "ping" within 3 s even while a sweep runs, and ends about a second after that sweep.
TEST_F(RealNetworkTest, TheDriverFindsEveryHostOfEveryLanAndServesTheLinkDuringSweeps) {
    std::string locales = (std::filesystem::temp_directory_path() / "locale-XXXXXX").string();
    ASSERT_NE(::mkdtemp(locales.data()), nullptr);
    const std::shared_ptr<void> removeLocales(
        nullptr, [&locales](void*) { std::filesystem::remove_all(locales); });
    const std::string made =
        testsupport::runCommand("localedef -i de_DE -f UTF-8 " + locales + "/de_DE.UTF-8 2>&1")
            .output;
    if (!std::filesystem::exists(locales + "/de_DE.UTF-8")) {
        GTEST_SKIP() << "no German locale (package locales): " << made;
    }
    const std::string german = "LOCPATH=" + locales + " LC_ALL=de_DE.UTF-8 LANGUAGE=de";

    testsupport::LoopbackServer server;
    testsupport::ReceivedMessages received(server);
    testsupport::DriverProcess driver(
        {"LOCPATH=" + locales, "LC_ALL=de_DE.UTF-8", "LANGUAGE=de", ARP_PRESENCE_PATH, "",
         "127.0.0.1", std::to_string(server.port()), "netns"},
        "/usr/bin/env");
    const auto started = Clock::now();
    ASSERT_TRUE(server.accept(5s));
    server.send(testsupport::multiPacket({{"mcmd", "debug"}, {"Valu", "true"}}));

    std::vector<std::string> seen;
    std::deque<Clock::time_point> unanswered;
    double slowest = 0;
    int sweepsBegun = 0;
    Clock::time_point secondSweep{};
    const auto take = [&](std::chrono::milliseconds limit) {
        for (const std::string& message : received.take(1, limit)) {
            if (message == "mcmd=PSrp" && !unanswered.empty()) {
                slowest = std::max(slowest, seconds(Clock::now() - unanswered.front()));
                unanswered.pop_front();
            } else if (message.ends_with("DATA=begin arp scan")) {
                secondSweep = Clock::now();
                ++sweepsBegun;
            }
            seen.push_back(message);
        }
    };
    auto nextPing = Clock::now();
    std::optional<Clock::time_point> closed;
    while (Clock::now() - started < 60s && !driver.waitForExit(0ms)) {
        if (!closed && sweepsBegun == 2 && Clock::now() - secondSweep > 1s) {
            closed = Clock::now();
            server.send(testsupport::multiPacket({{"mcmd", "close"}}));
        } else if (!closed && Clock::now() >= nextPing) {
            server.send(testsupport::multiPacket({{"mcmd", "ping"}}));
            unanswered.push_back(Clock::now());
            nextPing += 200ms;
        }
        take(20ms);
    }
    take(100ms);
    ASSERT_TRUE(closed) << "the second sweep did not begin within a minute";
    EXPECT_EQ(driver.waitForExit(0ms), 0);
    const double closing = seconds(Clock::now() - *closed);
    for (const BridgedNetwork::Host& host : network->hosts()) {
        const std::string report =
            "mcmd=" + std::string(host.answersEcho ? "ON" : "OFF") + " addr=" + host.mac;
        EXPECT_NE(std::find(seen.begin(), seen.end(), report + " UpDt=true"), seen.end())
            << host.role << " is not reported: " << report;
    }
    EXPECT_TRUE(unanswered.empty()) << unanswered.size() << " pings not answered";
    EXPECT_LE(slowest, 3.0);
    EXPECT_LE(closing, 4.0) << "the sweep's broadcast, the rest of the sweep and the drain";
    // Without the C locale for its tools the driver would have read this and found nobody.
    EXPECT_NE(testsupport::runCommand(german + " arp -a -n").output.find(" auf "),
              std::string::npos)
        << "arp is not translated here, so the locale proved nothing";
}

// The probe with the real ping: exactly two echo requests and about 3 s at most, whether the
// host answers at once, never, after a lost reply or late; an answer to either counts.
TEST_F(RealNetworkTest, TheProbeSendsExactlyTwoRequestsAndEndsWithinAboutThreeSeconds) {
    const std::string silent = network->host("host3").ip;
    // Address; requests lost and seconds late of host3's answers in place of its kernel's ("":
    // none); whether the probe counts as answered.
    const std::tuple<const char*, std::string, std::string, bool> rows[] = {
        {"answers", network->host("host1").ip, "", true}, {"drops echo", silent, "", false},
        {"no such host", "10.99.0.77", "", false},        {"first reply lost", silent, "1 0", true},
        {"replies 1.5 s late", silent, "0 1.5", true},
    };
    for (const auto& [what, address, answering, answered] : rows) {
        FILE* responder = nullptr;
        if (!answering.empty()) {
            responder = ::popen(
                ("nsenter --net=" + network->namespacePath("host3") +
                 " python3 " ARP_SOURCE_DIR "/tests/netns/echo_responder.py " + answering + " 4")
                    .c_str(),
                "r");
            ASSERT_NE(responder, nullptr);
            ASSERT_NE(std::fgetc(responder), EOF) << "the responder did not start";
        }
        auto shell = host::New<host::Shell>();
        const auto begun = Clock::now();
        SystemTools::startProbe(*shell, host::String(address));
        const double took = seconds(Clock::now() - begun);
        const auto outcome = SystemTools::probeOutcome(shell->ErrorCode(), shell->Result());
        EXPECT_NE(outcome.output.view().find("2 packets transmitted"), std::string::npos)
            << what << ":\n"
            << outcome.output.view();
        EXPECT_EQ(outcome.exitCode == 0, answered) << what;
        EXPECT_LT(took, 3.5) << what;
        if (responder != nullptr) {
            ::pclose(responder);
        }
    }
}

}  // namespace
