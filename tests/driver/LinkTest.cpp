#include <memory>
#include <thread>

#include "DriverFixture.h"
#include "host/Clock.h"
#include "host/NilObjectException.h"
#include "host/OutOfBoundsException.h"
#include "host/StackOverflowException.h"
#include "link/cAmbrelisDeviceSocket.h"
#include "wire/cAmbrelisCommand.h"

namespace {

using namespace std::literals;
using testsupport::multiPacket;
using LinkTest = DriverFixture;

TEST(AppTest, SweepIsDueOnlyAfterStrictlyMoreThanThirtySeconds) {
    const std::pair<double, bool> rows[] = {{0.0, false},   {29.999, false}, {30.0, false},
                                            {30.001, true}, {600.0, true},   {-3600.0, false}};
    for (auto [elapsed, due] : rows) {
        EXPECT_EQ(App::sweepIsDue(host::Date(1e6), host::Date(1e6 + elapsed)), due) << elapsed;
    }
}

// Each class has its own wording, which the controller's log shows; the stack follows at level 4.
TEST_F(LinkTest, GuardNamesTheClassThenLogsTheStack) {
    const auto make = [](auto err) { return std::make_shared<decltype(err)>(err); };
    const std::vector<std::pair<std::shared_ptr<host::RuntimeException>, std::string>> rows = {
        {make(host::OutOfBoundsException()), "An unhandled OutOfBounds Exception was trapped"},
        {make(host::NilObjectException()), "An unhandled NilObject Exception was trapped"},
        {make(host::StackOverflowException()), "A StackOverflowException has been handled"},
        {make(host::RuntimeException()), "an unhandled exception was trapped"},
    };
    for (const auto& [err, line] : rows) {
        SCOPED_TRACE(line);
        ::testing::internal::CaptureStdout();
        EXPECT_TRUE(app.Event_UnhandledException(*err));
        std::string expected = line + " globally.\n";
        for (const auto& frame : err->Stack) {
            expected += frame.bytes() + "\n";
        }
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), expected);
        EXPECT_GE(err->Stack.Count(), 1);
    }
}

// A failure that ends the run (here the missing connection id, with the link already standing)
// is reported by the guard, and the report leaves before Run returns: no pump comes after it.
TEST_F(LinkTest, TheGuardsReportOfWhatEndedTheRunLeavesBeforeTheRunEnds) {
    connect();
    EXPECT_EQ(app.Run(host::Array<host::String>{"arp-presence", "", "127.0.0.1", "1"}), 1);
    const Lines sent = testsupport::readControllerStream(server.receive(0ms)).inOrder;
    ASSERT_GE(sent.size(), 2u);
    EXPECT_EQ(sent.front(),
              "mcmd=WrtL Valu=4 DATA=An unhandled OutOfBounds Exception was trapped globally.");
}

// A run as the controller starts it, in-process: it greets, says it is ready, asks for the units
// and sweeps until "close". A port is truncated to its number, and arguments past the fourth are
// not read.
TEST_F(LinkTest, ARunThatConnectsAsksForItsUnitsAndEndsAtClose) {
    Lines got;
    std::thread controller([&] {
        if (server.accept(5s)) {
            got = server.take(3, 10s);
            server.send(multiPacket({{"mcmd", "close"}}));
        }
    });
    const std::int64_t status = app.Run(host::Array<host::String>{
        "arp-presence", "", "127.0.0.1", host::String(std::to_string(server.port()) + ".9"),
        "run-1", "x"});
    controller.join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(server.greeting(), "ard:run-1\r");
    EXPECT_EQ(got, (Lines{"mcmd=WrtL Valu=2 DATA=Tamsvale ISF connecting...",
                          "mcmd=WrtL Valu=2 DATA=Tamsvale driver version 2.0 (build 3) Ready...",
                          "mcmd=getUnits"}));
}

TEST_F(LinkTest, OpeningDropsTheLinkBeforeAndWaitingRunsToItsLimit) {
    connect();
    auto first = AmbrelisSupport::AmbrelisSocket;
    AmbrelisSupport::OpenAmbrelisConnection("", 0, "");
    EXPECT_FALSE(first->IsConnected());
    EXPECT_EQ(AmbrelisSupport::AmbrelisSocket->Address.bytes(), "127.0.0.1");
    EXPECT_EQ(AmbrelisSupport::AmbrelisSocket->Port, 20300);
    // A zero limit tests once, before any pumping could connect.
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "x");
    EXPECT_FALSE(AmbrelisSupport::WaitForAmbrelisConnection(0));
    // Still connecting, it sends nothing: a log line goes out at the ceiling, never beyond it.
    auto& link = *AmbrelisSupport::AmbrelisSocket;
    const auto ceiling = cAmbrelisDeviceSocket::kLogCeiling;
    link.Write(host::String(std::string(ceiling, 'x')));
    const auto line = host::New<cAmbrelisCommand>();
    line->SetMulti("DATA", "a log line");
    link.SendLogLine(line);
    link.SendLogLine(line);
    EXPECT_EQ(link.BytesLeftToSend() - ceiling, 20);
    // A refusal does not cut the wait short.
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", testsupport::refusedPort(), "x");
    ::testing::internal::CaptureStdout();
    const std::int64_t start = host::Ticks();
    EXPECT_FALSE(AmbrelisSupport::WaitForAmbrelisConnection(1));
    EXPECT_GE(host::Ticks() - start, 60);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\rAmbrelis Pipe Error\r\n");
    EXPECT_TRUE(Globals::DoQuit);
}

// Past the ceiling a controller that reads nothing loses log lines, and nothing else; once it
// has read what waited, one line counts those given up.
TEST_F(LinkTest, LogLinesGivenUpWhileTheControllerDoesNotReadAreCountedOnceItDoes) {
    connect();
    auto& link = *AmbrelisSupport::AmbrelisSocket;
    // More than the kernel's buffers of both ends hold, so that the queue stays past the ceiling.
    const std::size_t waiting = cAmbrelisDeviceSocket::kLogCeiling + (std::size_t{16} << 20);
    link.Write(host::String(std::string(waiting, 'x')));
    Globals::writelog("given up", 2);
    Globals::writelog("given up too", 2);
    std::string received;
    std::thread controller([&] { received = server.receive(20s, waiting); });
    for (int turn = 0; turn < 2000 && link.BytesLeftToSend() > 0; ++turn) {
        host::ConsoleApplication::DoEvents(10);
    }
    controller.join();
    EXPECT_EQ(received.size(), waiting);
    EXPECT_EQ(settle(), Lines{"mcmd=WrtL Valu=4 DATA=Tamsvale: 2 log lines given up while "
                              "Ambrelis was not reading them"});
}

class DispatcherTest : public DriverFixture {
protected:
    // Sends the bytes and a "ping" behind them, and returns the log lines and verbs that came
    // back up to the answer to that "ping", each as "WrtL <level> <line>" or its verb.
    Lines exchange(const std::string& bytes, std::string received = "") {
        server.send(bytes + multiPacket({{"mcmd", "PING"}, {"Valu", "echo me"}}));
        Lines seen;
        for (int turn = 0; turn < 100 && (seen.empty() || seen.back() != "mcmd=PSrp"); ++turn) {
            received += pumpAndReceive(1);
            seen = testsupport::readControllerStream(received).inOrder;
        }
        return seen;
    }
};

TEST_F(DispatcherTest, ActsOnEachVerbAndLetter) {
    const std::string log2 = "mcmd=WrtL Valu=2 DATA=", log4 = "mcmd=WrtL Valu=4 DATA=";
    const std::string quit = log2 + "The Tamsvale isf has been asked to quit. (";
    const std::string debugWas = log2 + "arp plugin debug mode is now o";
    const std::string debugMode = log4 + "DEBUG MODE O";
    // Bytes, what comes back before the answer to the closing "ping", the quit and debug flags.
    const std::vector<std::tuple<std::string, Lines, bool, bool>> rows = {
        // The reader folds the low-battery "Q" into "P" before the dispatcher sees it.
        {control('Q'), {quit + "2)"}, true, false},
        {control('q'), {quit + "1)"}, true, false},
        {control('D') + control('D'), {debugMode + "N", debugMode + "FF"}, false, false},
        {control('X'), {}, false, false},
        {"Z\x02"s, {log4 + "Tamsvale: Received malformed packet from host"}, false, false},
        {multiPacket({{"mcmd", "close"}}), {log2 + "arp Plugin shutting down..."}, true, false},
        {multiPacket({{"mcmd", "debug"}, {"Valu", "TRUE"}}), {debugWas + "n"}, false, true},
        {multiPacket({{"mcmd", "debug"}, {"Valu", "yes"}}), {debugWas + "ff'"}, false, false},
    };
    connect();
    for (auto [bytes, seen, quits, debug] : rows) {
        SCOPED_TRACE(bytes);
        Globals::DoQuit = false;
        Globals::DebugMode = false;
        seen.push_back("mcmd=PSrp");
        EXPECT_EQ(exchange(bytes), seen);
        EXPECT_EQ(std::pair(Globals::DoQuit, Globals::DebugMode), std::pair(quits, debug));
    }
}

TEST_F(DispatcherTest, UnanswerableMessagesEndInTheGuardAndTheLinkGoesOn) {
    connect();
    for (const std::string& bytes : {control('D', 0x00), multiPacket({{"mcmd", "setUnits"}})}) {
        server.send(bytes);
        const auto seen = exchange("", pumpAndReceive(1));
        EXPECT_EQ(seen.front(),
                  "mcmd=WrtL Valu=4 DATA=An unhandled NilObject Exception was trapped globally.");
        EXPECT_EQ(seen.back(), "mcmd=PSrp");
    }
}

// A control message that asks for nothing.
const std::string kCommon = control('X');
const std::string kGetUnits = "J\x12\x00\x80mcmd\x08\x00getUnits"s;  // 18 bytes
const std::string kMalformed = "Tamsvale: Received malformed packet from host\n";

// Bytes, passes allowed, whether the cutter returned by itself, what stays in the buffer, the
// log lines (on standard output as no link stands), and what a reading must add so that it ends
// where a message ends.
using CutRow = std::tuple<std::string, std::uint64_t, bool, std::string, std::string, std::size_t>;

TEST_F(LinkTest, CutterTakesWholeMessagesAndWaitsForTheRest) {
    const std::string part = kGetUnits.substr(0, 7);
    const std::vector<CutRow> rows = {
        {kGetUnits + kCommon + kGetUnits, 10, true, "", "", 0},
        {"j\x05\x00\x80X"s, 10, true, "", "", 0},  // the lead is read without case
        {"Z\x02"s + kCommon, 10, true, "", kMalformed, 0},
        {"E\x03x"s, 10, true, "", kMalformed, 0},
        {part, 10, true, part, "bufflength is 7 packet length is: 18\n", 11},
        // Under five bytes a multi-packet reads as a common message longer than what there is,
        // and an incomplete one is tested again and again.
        {kGetUnits.substr(0, 4), 1000, false, kGetUnits.substr(0, 4), "", 1},
        {kCommon.substr(0, 9), 1000, false, kCommon.substr(0, 9), "", 7},
        // One byte has no length byte: an empty frame is cut, refused, and cut again.
        {"Q", 3, false, "Q", kMalformed + kMalformed + kMalformed, 1},
        // A length of 0 cuts nothing, so the same multi-packet comes up again.
        {"J\x00\x00\x80X"s, 50, false, "J\x00\x00\x80X"s, "", 0},
        // The length field is little-endian whatever the flag byte says.
        {"J\x06\x00\x00zzQ"s, 2, false, "Q", kMalformed, 1},
        {kGetUnits + "J\x12"s, 10, false, "J\x12"s, "", 3},
    };
    for (const auto& [buffer, passes, returns, remaining, output, shortBy] : rows) {
        // What a reading must add is counted from the buffer on; odd lengths split so that the
        // buffer holds more than the delivery after it.
        const std::size_t half = (buffer.size() + 1) / 2;
        cAmbrelisDeviceSocket socket;
        socket.appendToBuffer(host::String(buffer.substr(0, half)));
        SCOPED_TRACE(::testing::PrintToString(buffer));
        EXPECT_EQ(socket.bytesShortOfWholeMessage(buffer.substr(half)), shortBy);
        socket.appendToBuffer(host::String(buffer.substr(half)));
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(socket.cutStream(passes), returns);
        EXPECT_EQ(socket.Buffer().bytes(), remaining);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), output);
    }
}

}  // namespace
