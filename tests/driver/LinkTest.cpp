#include <functional>

#include "DriverFixture.h"
#include "host/Clock.h"
#include "host/Shell.h"
#include "host/StackOverflowException.h"
#include "link/cAmbrelisDeviceSocket.h"

namespace {

using namespace std::string_literals;
using LinkTest = DriverFixture;
using Lines = std::vector<std::string>;

TEST(AppTest, SweepIsDueOnlyAfterStrictlyMoreThanThirtySeconds) {
    const std::pair<double, bool> rows[] = {{0.0, false},   {29.999, false}, {30.0, false},
                                            {30.001, true}, {600.0, true},   {-3600.0, false}};
    for (auto [elapsed, due] : rows) {
        EXPECT_EQ(App::sweepIsDue(host::Date(1e6), host::Date(1e6 + elapsed)), due) << elapsed;
    }
}

// Each class has its own wording, which the controller's log shows; the stack follows at level 4.
TEST_F(LinkTest, GuardNamesTheClassThenLogsTheStack) {
    const std::vector<std::pair<std::function<void()>, std::string>> rows = {
        {[] { host::Array<int>(2)[3] = 1; }, "An unhandled OutOfBounds Exception was trapped"},
        {[] { host::Ref<App>()->SleepTime = 1; }, "An unhandled NilObject Exception was trapped"},
        {[] { throw host::StackOverflowException(); }, "A StackOverflowException has been handled"},
        {[] { throw host::RuntimeException(); }, "an unhandled exception was trapped"},
    };
    for (const auto& [raise, line] : rows) {
        try {
            raise();
            ADD_FAILURE() << line << ": nothing raised";
        } catch (const host::RuntimeException& err) {
            ::testing::internal::CaptureStdout();
            EXPECT_TRUE(app.Event_UnhandledException(err));
            std::string expected = line + " globally.\n";
            for (const auto& frame : err.Stack) {
                expected += frame.bytes() + "\n";
            }
            EXPECT_EQ(::testing::internal::GetCapturedStdout(), expected);
            EXPECT_GE(err.Stack.Count(), 1);
        }
    }
}

TEST_F(LinkTest, OpenFillsDefaultsAndDropsTheLinkBefore) {
    connect();
    auto first = AmbrelisSupport::AmbrelisSocket;
    AmbrelisSupport::OpenAmbrelisConnection("", 0, "");
    EXPECT_FALSE(first->IsConnected());
    EXPECT_EQ(AmbrelisSupport::AmbrelisSocket->Address.bytes(), "127.0.0.1");
    EXPECT_EQ(AmbrelisSupport::AmbrelisSocket->Port, 20300);
}

TEST_F(LinkTest, WaitingForTheLink) {
    // A zero limit tests once, before any pumping could connect.
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "x");
    EXPECT_FALSE(AmbrelisSupport::WaitForAmbrelisConnection(0));
    // A refusal does not cut the wait short.
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", testsupport::refusedPort(), "x");
    ::testing::internal::CaptureStdout();
    const std::int64_t start = host::Ticks();
    EXPECT_FALSE(AmbrelisSupport::WaitForAmbrelisConnection(1));
    EXPECT_GE(host::Ticks() - start, 60);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\rAmbrelis Pipe Error\r\n");
    EXPECT_TRUE(Globals::DoQuit);
}

TEST_F(LinkTest, GreetsThenCutsDeliveredBytesAndLogsRefusalsToController) {
    std::string received = connect("conn-42");
    const std::string packet = "J\x12\x00\x80mcmd\x08\x00getUnits"s;
    server.send(packet.substr(0, 9));
    received += pumpAndReceive(60);
    server.send(packet.substr(9) + "Z\x02"s);
    const auto view = testsupport::readControllerStream(received + pumpAndReceive(60));
    EXPECT_EQ(view.greeting, "ard:conn-42\r");
    EXPECT_EQ(view.inOrder,
              (Lines{"mcmd=WrtL Valu=2 DATA=Tamsvale ISF connecting...",
                     "mcmd=WrtL Valu=2 DATA=bufflength is 9 packet length is: 18",
                     "mcmd=WrtL Valu=4 DATA=Tamsvale: Received malformed packet from host"}));
}

// A synchronous child blocks the thread; what was queued before it must not wait for its end.
TEST_F(LinkTest, QueuedMessagesLeaveBeforeASynchronousChildBlocks) {
    connect();
    Globals::writelog("before the sweep", 2);
    host::New<host::Shell>()->Execute("/bin/true", "");
    const auto view =
        testsupport::readControllerStream(server.receive(std::chrono::milliseconds(0)));
    EXPECT_EQ(view.inOrder, Lines{"mcmd=WrtL Valu=2 DATA=before the sweep"});
}

// A control message of the full layout, 16 bytes: "X", which asks for nothing.
const std::string kCommon =
    "X\x10"
    "a\x40LX\x40"
    "0X\x30\x33\x00\x00\x00 \r"s;
const std::string kGetUnits = "J\x12\x00\x80mcmd\x08\x00getUnits"s;  // 18 bytes
const std::string kMalformed = "Tamsvale: Received malformed packet from host\n";

// Bytes, passes allowed, whether the cutter returned by itself, what stays in the buffer, the
// log lines (on standard output as no link stands), and what a reading must add so that it ends
// where a message ends.
using CutRow = std::tuple<std::string, std::uint64_t, bool, std::string, std::string, std::size_t>;

TEST_F(LinkTest, CutterTakesWholeMessagesAndWaitsForTheRest) {
    const std::string part = kGetUnits.substr(0, 7);
    const std::vector<CutRow> rows = {
        {"", 10, true, "", "", 0},
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
        // What a reading must add is counted from the buffer on.
        const std::size_t half = buffer.size() / 2;
        cAmbrelisDeviceSocket socket;
        socket.appendToBuffer(host::String(buffer.substr(0, half)));
        EXPECT_EQ(socket.bytesShortOfWholeMessage(buffer.substr(half)), shortBy) << buffer;
        socket.appendToBuffer(host::String(buffer.substr(half)));
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(socket.cutStream(passes), returns) << buffer;
        EXPECT_EQ(socket.Buffer().bytes(), remaining);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), output) << buffer;
    }
}

}  // namespace
