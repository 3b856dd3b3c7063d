#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "../driver/LinkFixture.h"
#include "BridgedNetwork.h"
#include "DriverProcess.h"
#include "InNamespace.h"
#include "MultiPacketReader.h"
#include "ReceivedMessages.h"
#include "UnitList.h"
#include "core/Globals.h"
#include "host/Date.h"
#include "scan/cScanner.h"
#include "wire/cAmbrelisCommand.h"

// The driver on a real network: three hosts behind a bridge, the system's own ping and arp, and
// the controller on loopback inside the driver's namespace.
namespace {

using namespace std::chrono_literals;
using Messages = std::vector<std::string>;

// Made once per process and shared by the suite's tests.
std::unique_ptr<BridgedNetwork> network;

std::size_t count(const Messages& messages, const std::string& message) {
    return static_cast<std::size_t>(std::count(messages.begin(), messages.end(), message));
}

// Response times are the kernel's: only their form is known, and they read "<ms>".
Messages withTimesHidden(Messages messages) {
    const std::string label = "response time UPV1=";
    for (std::string& message : messages) {
        const std::size_t from = message.find(label);
        const std::size_t to = message.find(" addr=");
        if (from == std::string::npos || to == std::string::npos || to <= from + label.size()) {
            continue;
        }
        const std::size_t start = from + label.size();
        const std::string time = message.substr(start, to - start);
        char* end = nullptr;
        if (std::strtod(time.c_str(), &end) > 0 && *end == '\0') {
            message.replace(start, to - start, "<ms>");
        }
    }
    return messages;
}

// The thread enters the driver's namespace before the link fixture makes its server, so that
// the server, the driver's socket and every child of the test live there.
class RealNetworkTest : private InNamespace, public LinkFixture {
protected:
    RealNetworkTest()
        : InNamespace(network->whyNot().empty() ? network->driverNamespacePath() : "") {}

    static void SetUpTestSuite() { network = std::make_unique<BridgedNetwork>(); }
    static void TearDownTestSuite() { network.reset(); }

    void SetUp() override {
        if (!network->whyNot().empty()) {
            GTEST_SKIP() << "no network of namespaces: " << network->whyNot();
        }
        ASSERT_TRUE(entered()) << "cannot enter " << network->driverNamespacePath();
        const char* path = std::getenv("PATH");
        ASSERT_EQ(std::string(path != nullptr ? path : "").find(FAKE_TOOLS_DIR), std::string::npos)
            << "the fake tools are on PATH";
        ASSERT_TRUE(network->forgetNeighbours()) << network->lastFailure();
        LinkFixture::SetUp();
    }

    void TearDown() override {
        EXPECT_EQ(Globals::outstandingPings, 0);
        Globals::outstandingPings = 0;
        Globals::gScanner = nullptr;
        if (network->whyNot().empty()) {
            EXPECT_TRUE(network->setHostLink(2, true)) << network->lastFailure();
        }
        LinkFixture::TearDown();
    }

    // One sweep of the driver in this process, up to the end of its pings; what it sent.
    Messages sweep() {
        Globals::gScanner->DoScan();
        for (int turn = 0; turn < 600 && Globals::outstandingPings > 0; ++turn) {
            host::ConsoleApplication::DoEvents(10);
        }
        for (int turn = 0; turn < 3; ++turn) {
            host::ConsoleApplication::DoEvents(5);
        }
        return received.take(SIZE_MAX, 0ms);
    }

    testsupport::ReceivedMessages received{server};
};

TEST_F(RealNetworkTest, TheDriverReportsEveryHostOnWithItsResponseTime) {
    testsupport::DriverProcess driver({"", "127.0.0.1", std::to_string(server.port()), "netns"});
    ASSERT_TRUE(server.accept(5s));
    // Two log lines, "getUnits", then an "ON" and a "NoOp" per host.
    const Messages sent = withTimesHidden(received.take(9, 15s));
    ASSERT_EQ(sent.size(), 9u) << ::testing::PrintToString(sent);
    EXPECT_EQ(sent[2], "mcmd=getUnits");
    for (const BridgedNetwork::Host& host : network->hosts()) {
        EXPECT_EQ(count(sent, "mcmd=ON addr=" + host.mac + " UpDt=true"), 1u) << host.mac;
        EXPECT_EQ(count(sent, "mcmd=NoOp UPN0=IP UPV0=" + host.ip +
                                  "  UPN1=response time UPV1=<ms> addr=" + host.mac),
                  1u)
            << host.mac;
    }
    server.send(testsupport::multiPacket({{"mcmd", "close"}}));
    EXPECT_EQ(driver.waitForExit(5s), 0);
}

// A present unit host is pinged again only after 300 seconds, so its last ping is moved back.
TEST_F(RealNetworkTest, AUnitHostWhoseLinkWentDownIsOffAtItsNextPing) {
    connect();
    Globals::gScanner = host::New<cScanner>();
    Globals::gScanner->Constructor();
    const BridgedNetwork::Host& third = network->hosts()[2];
    auto units = host::New<cAmbrelisCommand>();
    units->Constructor();
    units->SetMulti("DATA", host::String(testsupport::unitList({{3, third.ip, "Host 3"}})));
    Globals::gScanner->gotUnitsFromAmbrelis(units);
    EXPECT_EQ(count(sweep(), "mcmd=ON addr=" + third.ip + " UpDt=true"), 1u);
    ASSERT_EQ(Globals::gScanner->HostDict->Count(), 4) << "three arp hosts and the unit host";

    ASSERT_TRUE(network->setHostLink(2, false)) << network->lastFailure();
    Globals::gScanner->HostDict->Value(3.0)->lastPing =
        host::New<host::Date>(host::Date().TotalSeconds() - 301);
    Messages offs = sweep();
    std::erase_if(offs, [](const std::string& m) { return !m.starts_with("mcmd=OFF"); });
    // The arp host of the same address keeps its ON through its grace time.
    EXPECT_EQ(offs, Messages{"mcmd=OFF addr=" + third.ip});
}

}  // namespace
