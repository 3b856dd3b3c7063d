#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "LinkFixture.h"
#include "MultiPacketReader.h"
#include "host/Clock.h"
#include "host/ConsoleApplication.h"
#include "host/NilObjectException.h"
#include "host/Shell.h"
#include "link/CommandSupportModule.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

using LinkTest = LinkFixture;

TEST_F(LinkTest, GreetsThenLogsConnectingAsFirstMessage) {
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "conn-42");
    ASSERT_TRUE(AmbrelisSupport::WaitForAmbrelisConnection(2));
    ASSERT_TRUE(server.accept());

    auto view = testsupport::readControllerStream(pumpAndReceive(60));
    EXPECT_EQ(view.greeting, "ard:conn-42\r");
    ASSERT_EQ(view.messages.size(), 1u);
    EXPECT_EQ(view.messages[0].at("mcmd"), "WrtL");
    EXPECT_EQ(view.messages[0].at("Valu"), "2");
    EXPECT_EQ(view.messages[0].at("DATA"), "Tamsvale ISF connecting...");
}

TEST_F(LinkTest, DefaultsFillEmptyAddressAndZeroPort) {
    AmbrelisSupport::OpenAmbrelisConnection("", 0, "");
    EXPECT_EQ(AmbrelisSupport::AmbrelisSocket->Address.bytes(), "127.0.0.1");
    EXPECT_EQ(AmbrelisSupport::AmbrelisSocket->Port, 20300);
    EXPECT_EQ(CommandSupportModule::cr.bytes(), "\r");
}

TEST_F(LinkTest, SecondOpenStartsAfreshWithEmptyBuffer) {
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "a");
    ASSERT_TRUE(AmbrelisSupport::WaitForAmbrelisConnection(2));
    auto first = AmbrelisSupport::AmbrelisSocket;
    first->appendToBuffer(host::String("X\x10partial"s));
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "b");
    EXPECT_FALSE(first->IsConnected());
    EXPECT_FALSE(AmbrelisSupport::AmbrelisSocket == first);
    EXPECT_EQ(AmbrelisSupport::AmbrelisSocket->Buffer().bytes(), "");
}

TEST_F(LinkTest, RefusedConnectionPrintsPipeErrorAndWaitsToTheLimit) {
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", testsupport::refusedPort(), "x");
    ::testing::internal::CaptureStdout();
    const std::int64_t start = host::Ticks();
    EXPECT_FALSE(AmbrelisSupport::WaitForAmbrelisConnection(1));
    const std::int64_t waited = host::Ticks() - start;
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\rAmbrelis Pipe Error\r\n");
    EXPECT_TRUE(Globals::DoQuit);
    EXPECT_GE(waited, 60);  // the error does not cut the wait short
}

TEST_F(LinkTest, ZeroTimeoutTestsOnceWithoutPumping) {
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "x");
    EXPECT_FALSE(AmbrelisSupport::WaitForAmbrelisConnection(0));
}

TEST_F(LinkTest, WaitWithoutOpenRaisesNilObject) {
    EXPECT_THROW(AmbrelisSupport::WaitForAmbrelisConnection(1), host::NilObjectException);
}

TEST_F(LinkTest, DeliveredBytesAreCutAndRefusalsLoggedToController) {
    connect();

    // Half a multi-packet, then the rest with a malformed message behind it.
    const std::string packet = "J\x12\x00\x80mcmd\x08\x00getUnits"s;
    server.send(packet.substr(0, 9));
    auto first = testsupport::readControllerStream(pumpAndReceive(60));
    server.send(packet.substr(9) + "Z\x02"s);
    auto second = testsupport::readControllerStream(pumpAndReceive(60));

    EXPECT_EQ(testsupport::logLines(first),
              std::vector<std::string>{"bufflength is 9 packet length is: 18"});
    ASSERT_EQ(second.messages.size(), 1u);
    EXPECT_EQ(second.messages[0].at("Valu"), "4");
    EXPECT_EQ(second.messages[0].at("DATA"), "Tamsvale: Received malformed packet from host");
}

TEST_F(LinkTest, PeerCloseSetsDoQuitAndLogsGoToStandardOutput) {
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "x");
    ASSERT_TRUE(AmbrelisSupport::WaitForAmbrelisConnection(2));
    ASSERT_TRUE(server.accept());
    server.closeClient();
    ::testing::internal::CaptureStdout();
    for (int turn = 0; turn < 100 && !Globals::DoQuit; ++turn) {
        host::ConsoleApplication::DoEvents(10);
    }
    Globals::writelog("after the link fell", 2);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "\rAmbrelis Pipe Error\r\nafter the link fell\n");
    EXPECT_TRUE(Globals::DoQuit);
}

TEST_F(LinkTest, LogLineBeforeTheLinkGoesToStandardOutputWithoutLevel) {
    ::testing::internal::CaptureStdout();
    Globals::writelog("no link yet", 4);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "no link yet\n");
}

}  // namespace

// A synchronous child blocks the thread; what was queued before it must not wait for its end.
TEST_F(LinkTest, QueuedMessagesLeaveBeforeASynchronousChildBlocks) {
    connect();
    Globals::writelog("before the sweep", 2);
    auto shell = host::New<host::Shell>();
    shell->Execute("/bin/true", "");
    const auto view =
        testsupport::readControllerStream(server.receive(std::chrono::milliseconds(0)));
    EXPECT_EQ(testsupport::logLines(view), std::vector<std::string>{"before the sweep"});
}
