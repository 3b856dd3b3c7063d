#include "host/TCPSocket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <thread>

#include "LoopbackServer.h"
#include "ProcessStats.h"
#include "host/ConsoleApplication.h"

namespace {

using Events = std::vector<std::string>;
using namespace std::chrono_literals;

class RecordingSocket : public host::TCPSocket {
public:
    Events events;

protected:
    // The socket must count as connected inside its own event already.
    void Event_Connected() override { events.push_back(IsConnected() ? "connected" : "early"); }
    void Event_DataAvailable() override { events.push_back("data"); }
    void Event_Error(const host::RuntimeException& err) override {
        events.push_back("error " + std::to_string(err.ErrorNumber));
    }
};

// Short pump calls until `done`, for at most about turns * 10 ms.
bool pumpUntil(const std::function<bool()>& done, int turns = 1000) {
    for (int i = 0; i < turns && !done(); ++i) {
        host::ConsoleApplication::DoEvents(10);
    }
    return done();
}

class TCPSocketTest : public ::testing::Test {
protected:
    void TearDown() override {
        socket.reset();
        EXPECT_EQ(host::EventPump::instance().watchCount(), 0u);
        EXPECT_EQ(host::EventPump::instance().postedCount(), 0u);
        EXPECT_EQ(testsupport::childProcesses(), 0);
    }
    void connectTo(std::int64_t port) {
        socket = std::make_shared<RecordingSocket>();
        socket->Address = "127.0.0.1";
        socket->Port = port;
        socket->Connect();
    }

    testsupport::LoopbackServer server;
    std::shared_ptr<RecordingSocket> socket;
};

TEST_F(TCPSocketTest, WritesArriveWholeAndInOrderThenPeerCloseRaisesOneError) {
    // Every byte value; more than one turn reads and more than one send() takes.
    std::string down(3 << 20, '\0'), received;
    std::iota(down.begin(), down.end(), '\0');
    const std::string up = down + down + down;
    connectTo(server.port());
    socket->Write(host::String(up.substr(0, 6)));
    EXPECT_TRUE(socket->events.empty());
    ASSERT_TRUE(server.accept());
    std::thread peer([&] {
        server.send(down);
        received = server.receive(20s, up.size());
    });
    // The rest once connected, in pieces that must leave after the bytes queued before.
    pumpUntil([&] { return !socket->events.empty(); });
    socket->Write(host::String(up.substr(6, 1000)));
    socket->Write(host::String(up.substr(1006)));
    bool done = pumpUntil(
        [&] { return socket->BytesLeftToSend() == 0 && socket->BytesAvailable() == 3 << 20; });
    peer.join();
    ASSERT_TRUE(done);
    EXPECT_TRUE(received == up);
    Events expected(socket->events.size(), "data");
    expected.front() = "connected";

    // Last bytes and close, read in one turn: the bytes are reported first, then one error.
    server.send("end");
    server.closeClient();
    ASSERT_TRUE(pumpUntil([&] { return !socket->IsConnected(); }));
    host::ConsoleApplication::DoEvents(50);
    expected.insert(expected.end(), {"data", "error 0"});
    EXPECT_EQ(socket->events, expected);
    EXPECT_TRUE(socket->ReadAll().sameBytes(host::String(down + "end")));
    socket->Write("dropped");
    EXPECT_EQ(socket->BytesLeftToSend(), 0);
}

TEST_F(TCPSocketTest, FailureToConnectArrivesOnceInsideThePumpOrPoll) {
    const int refused = testsupport::refusedPort();
    // A port out of range fails inside Connect itself; its report must still wait.
    for (auto [port, errorNumber] : {std::pair{refused, ECONNREFUSED}, std::pair{70000, EINVAL}}) {
        for (bool byPoll : {false, true}) {
            SCOPED_TRACE(std::to_string(port) + (byPoll ? " by Poll" : " by pump"));
            connectTo(port);
            EXPECT_TRUE(socket->events.empty());
            for (int i = 0; byPoll && i < 5000 && socket->events.empty(); ++i) {
                socket->Poll();
                std::this_thread::sleep_for(1ms);
            }
            EXPECT_TRUE(pumpUntil([&] { return !socket->events.empty(); }, byPoll ? 0 : 1000));
            host::ConsoleApplication::DoEvents(20);
            EXPECT_EQ(socket->events, Events{"error " + std::to_string(errorNumber)});
        }
    }
}

}  // namespace
