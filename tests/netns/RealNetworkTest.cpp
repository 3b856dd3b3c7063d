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

#include "../driver/LinkFixture.h"
#include "BridgedNetwork.h"
#include "DriverProcess.h"
#include "EchoResponder.h"
#include "InNamespace.h"
#include "MultiPacketReader.h"
#include "ReceivedMessages.h"
#include "UnitList.h"
#include "core/Globals.h"
#include "host/Date.h"
#include "host/SystemTools.h"
#include "scan/cScanner.h"
#include "wire/cAmbrelisCommand.h"

// The driver on a home network as it comes (BridgedNetwork::home()), with the system's own
// ping, arp and fping, and the controller on loopback inside the driver's namespace.
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Messages = std::vector<std::string>;

// Made once per process and shared by the suite's tests.
std::unique_ptr<BridgedNetwork> network;

bool has(const Messages& messages, const std::string& message) {
    return std::find(messages.begin(), messages.end(), message) != messages.end();
}

double seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// Output of a command run by the shell, standard error included.
std::string outputOf(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe != nullptr) {
        for (int c; (c = std::fgetc(pipe)) != EOF;) {
            output.push_back(static_cast<char>(c));
        }
        ::pclose(pipe);
    }
    return output;
}

// A German locale compiled into a folder of its own, for as long as the object lives.
class GermanLocale {
public:
    GermanLocale() {
        std::string pattern = (std::filesystem::temp_directory_path() / "locale-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            return;
        }
        folder_ = pattern;
        const std::string made =
            outputOf("localedef -i de_DE -f UTF-8 " + folder_ + "/de_DE.UTF-8");
        if (!std::filesystem::exists(folder_ + "/de_DE.UTF-8")) {
            whyNot_ = "no German locale (package locales): " + made;
        }
    }
    ~GermanLocale() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    GermanLocale(const GermanLocale&) = delete;
    GermanLocale& operator=(const GermanLocale&) = delete;

    const std::string& whyNot() const { return whyNot_; }
    std::string environment() const {
        return "LOCPATH=" + folder_ + " LC_ALL=de_DE.UTF-8 LANGUAGE=de";
    }
    // Puts the locale into our environment, which a child inherits, until `restore`.
    void enter() const {
        ::setenv("LOCPATH", folder_.c_str(), 1);
        ::setenv("LC_ALL", "de_DE.UTF-8", 1);
        ::setenv("LANGUAGE", "de", 1);
    }
    static void restore() {
        for (const char* name : {"LOCPATH", "LC_ALL", "LANGUAGE"}) {
            ::unsetenv(name);
        }
    }

private:
    std::string folder_;
    std::string whyNot_;
};

// The thread enters the driver's namespace before the link fixture makes its server, so that
// the server, the driver's socket and every child of the test live there.
class RealNetworkTest : private InNamespace, public LinkFixture {
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
            EXPECT_TRUE(network->setHostLink("host1", true)) << network->lastFailure();
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

// The driver process under a German locale, asked "ping" every 200 ms from its start into the
// broadcast of its second sweep, and then told to close: it finds every host of both LANs and
// the uplink, reports those that answer echo ON and the one that does not OFF, answers every
// "ping" within 3 s even while a sweep runs, and ends about a second after that sweep.
TEST_F(RealNetworkTest, TheDriverFindsEveryHostOfEveryLanAndServesTheLinkDuringSweeps) {
    const GermanLocale german;
    if (!german.whyNot().empty()) {
        GTEST_SKIP() << german.whyNot();
    }
    german.enter();
    testsupport::DriverProcess driver({"", "127.0.0.1", std::to_string(server.port()), "netns"});
    GermanLocale::restore();
    const auto started = Clock::now();
    ASSERT_TRUE(server.accept(5s));
    server.send(testsupport::multiPacket({{"mcmd", "debug"}, {"Valu", "true"}}));

    Messages seen;
    std::deque<Clock::time_point> unanswered;
    std::vector<double> answerTimes;
    int sweepsBegun = 0;
    Clock::time_point secondSweep{};
    double lastFirstReport = 0;  // seconds from the start
    const auto take = [&](std::chrono::milliseconds limit) {
        for (const std::string& message : received.take(1, limit)) {
            if (message == "mcmd=PSrp" && !unanswered.empty()) {
                answerTimes.push_back(seconds(Clock::now() - unanswered.front()));
                unanswered.pop_front();
            } else if (message.ends_with("DATA=begin arp scan")) {
                secondSweep = Clock::now();
                ++sweepsBegun;
            } else if (message.ends_with(" UpDt=true")) {
                lastFirstReport = seconds(Clock::now() - started);
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
        const std::string presence = host.answersEcho ? "ON" : "OFF";
        EXPECT_TRUE(has(seen, "mcmd=" + presence + " addr=" + host.mac + " UpDt=true"))
            << host.role << " " << host.mac << " is not reported " << presence;
    }
    EXPECT_TRUE(unanswered.empty()) << unanswered.size() << " pings not answered";
    ASSERT_FALSE(answerTimes.empty());
    const double slowest = *std::max_element(answerTimes.begin(), answerTimes.end());
    std::printf(
        "first reports within %.1f s; %zu pings answered, the slowest after %.3f s; exit "
        "%.3f s after close\n",
        lastFirstReport, answerTimes.size(), slowest, closing);
    EXPECT_LE(slowest, 3.0);
    EXPECT_LE(closing, 4.0) << "the sweep's broadcast, the rest of the sweep and the drain";

    // Without the C locale for its tools the driver would have read this and found nobody.
    EXPECT_NE(outputOf(german.environment() + " arp -a -n").find(" auf "), std::string::npos)
        << "arp is not translated here, so the locale proved nothing";
}

// The probe with the real ping: exactly two echo requests and about 3 s at most, whether the
// host answers at once, never, after a lost reply or late; an answer to either counts.
TEST_F(RealNetworkTest, TheProbeSendsExactlyTwoRequestsAndEndsWithinAboutThreeSeconds) {
    const BridgedNetwork::Host& silent = network->host("host3");
    struct Row {
        const char* what;
        std::string address;
        EchoResponder::Behaviour answering;  // host3's answers in place of its kernel's
        bool answered;
    };
    const std::vector<Row> rows = {
        {"answers", network->host("host1").ip, {0, 0ms}, true},
        {"drops echo", silent.ip, {2, 0ms}, false},
        {"no such host", "10.99.0.77", {2, 0ms}, false},
        {"first reply lost", silent.ip, {1, 0ms}, true},
        {"replies 1.5 s late", silent.ip, {0, 1500ms}, true},
    };
    for (const Row& row : rows) {
        const EchoResponder responder(network->namespacePath("host3"), row.answering);
        ASSERT_TRUE(responder.ready());
        auto shell = host::New<host::Shell>();
        const auto begun = Clock::now();
        host::SystemTools::startProbe(*shell, host::String(row.address));
        const double took = seconds(Clock::now() - begun);
        const auto outcome = host::SystemTools::probeOutcome(shell->ErrorCode(), shell->Result());
        std::printf("%-20s %.2f s, exit %lld\n", row.what, took,
                    static_cast<long long>(outcome.exitCode));
        EXPECT_NE(outcome.output.view().find("2 packets transmitted"), std::string::npos)
            << row.what << ":\n"
            << outcome.output.view();
        EXPECT_EQ(outcome.exitCode == 0, row.answered) << row.what;
        EXPECT_LT(took, 3.5) << row.what;
    }
}

// A present unit host is pinged again only after 300 seconds, so its last ping is moved back.
TEST_F(RealNetworkTest, AUnitHostWhoseLinkWentDownIsOffAtItsNextPing) {
    connect();
    Globals::gScanner = host::New<cScanner>();
    Globals::gScanner->Constructor();
    const BridgedNetwork::Host& first = network->host("host1");
    auto units = host::New<cAmbrelisCommand>();
    units->Constructor();
    units->SetMulti("DATA", host::String(testsupport::unitList({{3, first.ip, "Host 1"}})));
    Globals::gScanner->gotUnitsFromAmbrelis(units);
    EXPECT_TRUE(has(sweep(), "mcmd=ON addr=" + first.ip + " UpDt=true"));
    ASSERT_EQ(Globals::gScanner->HostDict->Count(), 6) << "five arp hosts and the unit host";

    ASSERT_TRUE(network->setHostLink("host1", false)) << network->lastFailure();
    Globals::gScanner->HostDict->Value(3.0)->lastPing =
        host::New<host::Date>(host::Date().TotalSeconds() - 301);
    Messages offs = sweep();
    std::erase_if(offs, [](const std::string& m) { return !m.starts_with("mcmd=OFF"); });
    // The arp host of the same address keeps its ON through its grace time.
    EXPECT_EQ(offs, Messages{"mcmd=OFF addr=" + first.ip});
}

}  // namespace
