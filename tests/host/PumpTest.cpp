#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/time.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <numeric>
#include <thread>

#include "LoopbackServer.h"
#include "ProcessStats.h"
#include "host/ChildProcess.h"
#include "host/Clock.h"
#include "host/ConsoleApplication.h"
#include "host/EndException.h"
#include "host/ExceptionWrapper.h"
#include "host/IOException.h"
#include "host/Shell.h"
#include "host/ShellNotRunningException.h"
#include "host/TCPSocket.h"

namespace {

using host::EventPump;
using Names = std::vector<std::string>;
using End = std::pair<std::int64_t, std::string>;
using namespace std::chrono_literals;

// Failures inside handlers are recorded; every test must leave the pump empty, no child (nor a
// grandchild, which comes to us as an orphan) and no descriptor behind.
class PumpTest : public ::testing::Test {
protected:
    PumpTest() {
        testsupport::adoptOrphans();
        host::ExceptionWrapper::setHandler([this](const host::RuntimeException& err) {
            handled.push_back(err.className());
            return true;
        });
    }
    void TearDown() override {
        host::ExceptionWrapper::setHandler({});
        EXPECT_EQ(std::tuple(handled, pump.watchCount(), pump.postedCount(),
                             testsupport::hasChildren(), testsupport::openDescriptors()),
                  std::tuple(Names{}, 0ul, 0ul, false, descriptors));
    }

    EventPump& pump = EventPump::instance();
    Names handled;
    const int descriptors = testsupport::openDescriptors();
};

// Short pump calls until `done`, for at most about 10 s.
bool pumpUntil(const std::function<bool()>& done) {
    for (int i = 0; i < 1000 && !done(); ++i) {
        host::ConsoleApplication::DoEvents(10);
    }
    return done();
}

// A signal, caught, that cuts short whatever wait this thread is in `after` from now.
void interruptIn(std::chrono::milliseconds after) {
    struct sigaction caught {};
    caught.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &caught, nullptr);
    const itimerval once{{0, 0}, {0, static_cast<suseconds_t>(after.count() * 1000)}};
    ::setitimer(ITIMER_REAL, &once, nullptr);
}

TEST_F(PumpTest, HandlersFailOnlyInsideThePumpAndPostedTasksWaitForTheNextTurn) {
    // Each reaches the handler as a host exception, an end unseen, and none stops the turn.
    for (auto fail : {+[] { throw host::IOException(); }, +[] { throw std::out_of_range("at"); },
                      +[] { throw 42; }, +[] { throw host::EndException(); }}) {
        pump.post(fail);
    }
    const int ready = ::eventfd(1, EFD_CLOEXEC);  // readable until read: the watch is ready
    auto id = pump.watch(ready, POLLIN, [](short) { throw std::bad_alloc(); });
    pump.runOnce(0);
    pump.unwatch(id);
    ::close(ready);
    EXPECT_EQ(std::exchange(handled, {}), (Names{"IOException", "OutOfBoundsException",
                                                 "RuntimeException", "OutOfMemoryException"}));
    // A task posted by a task waits for the next turn, which must not wait for its poll to end.
    std::vector<int> order;
    std::function<void(int)> chain = [&](int n) {
        order.push_back(n);
        pump.post([&chain, n] { n % 10 < 3 ? chain(n + 1) : void(); });
    };
    pump.post([&] { chain(1); });
    pump.post([&] { chain(11); });
    pump.runOnce(0);
    EXPECT_EQ(order, (std::vector<int>{1, 11}));
    host::ConsoleApplication::DoEvents(200);
    EXPECT_EQ(order, (std::vector<int>{1, 11, 2, 12, 3, 13}));
}

// Records every completion (also of shells their owner dropped) and what it saw, anew per shell.
class RecordingShell : public host::Shell {
public:
    static inline std::vector<End> ends;
    explicit RecordingShell(std::int64_t mode) { Mode = mode, ends.clear(); }

protected:
    void Event_Completed() override { ends.emplace_back(ErrorCode(), Result().bytes()); }
};

// Drops the last owner and serves the pump until the shell is gone: an asynchronous one lives on
// until its last completion. Each turn returns as soon as a completion has been served.
std::vector<End> finish(std::shared_ptr<RecordingShell>& shell) {
    std::weak_ptr<RecordingShell> watcher = shell;
    shell.reset();
    for (int turn = 0; turn < 1000 && !watcher.expired(); ++turn) {
        EventPump::instance().runOnce(1000);
    }
    std::sort(RecordingShell::ends.begin(), RecordingShell::ends.end());
    return RecordingShell::ends;
}

TEST_F(PumpTest, ShellRunsReportCodeAndOutputOnceInBothModesAndOnlyThePumpCompletesThem) {
    // command, parameters (nullptr: none) -> code, output. Children speak the C locale, whatever
    // ours is, so that what they print can be parsed; printf is found in the system folders when
    // PATH has none; a grandchild that keeps the output open must not hold the run past the
    // child's end: it still runs then.
    // clang-format off
    const std::vector<std::tuple<const char*, const char*, std::int64_t, std::string>> cases = {
        {"echo out; echo err >&2", nullptr, 0, "out\nerr\n"}, {"/nonexistent/tool", "-x", 127, ""},
        {"echo \"$LC_ALL ${LANGUAGE-unset}\"", nullptr, 0, "C unset\n"}, {"exit 3", nullptr, 3, ""},
        {"printf", "  %s|  a \t b   c  ", 0, "a|b|c|"}, {"sleep 90 & echo x", nullptr, 0, "x\n"},
        {"head -c 300000 /dev/zero", nullptr, 0, std::string(300000, '\0')}};
    // clang-format on
    const std::string path = ::getenv("PATH");
    ::unsetenv("PATH");
    ::setenv("LC_ALL", "de_DE.UTF-8", 1);
    ::setenv("LANGUAGE", "de", 1);
    for (std::int64_t mode : {0, 1}) {
        for (const auto& [command, parameters, code, result] : cases) {
            SCOPED_TRACE(std::string(command) + ", mode " + std::to_string(mode));
            auto shell = std::make_shared<RecordingShell>(mode);
            parameters ? shell->Execute(command, parameters) : shell->Execute(command);
            // Never in mode 0; in mode 1 only from inside the pump.
            EXPECT_TRUE(RecordingShell::ends.empty());
            if (mode == 0) {
                RecordingShell::ends.emplace_back(shell->ErrorCode(), shell->Result().bytes());
            }
            EXPECT_TRUE(finish(shell) == std::vector{End(code, result)});
            EXPECT_EQ(testsupport::endChildren(), std::string_view(command).ends_with("& echo x"));
        }
    }
    ::setenv("PATH", path.c_str(), 1);
    ::unsetenv("LC_ALL");
    ::unsetenv("LANGUAGE");
    // Arguments reach the program as they are, with no shell in between.
    auto shell = std::make_shared<RecordingShell>(0);
    shell->Execute("cat; echo end");  // stdin is empty
    EXPECT_EQ(shell->Result().bytes(), "end\n");
    shell->executeArguments("printf", {"%s\n", "a b; touch x", "-f", "", "$HOME"});
    EXPECT_EQ(shell->Result().bytes(), "a b; touch x\n-f\n\n$HOME\n");
    EXPECT_THROW(shell->Write("x"), host::ShellNotRunningException);
    // Close kills, a wait serves nothing, and every Execute completes once, in the pump.
    auto closed = std::make_shared<RecordingShell>(1), twice = std::make_shared<RecordingShell>(1);
    closed->Execute("exec sleep 30");
    closed->Close();
    twice->Execute("sleep 0.3; echo a; exit 1");
    twice->Execute("echo b");
    finish(closed);
    EXPECT_EQ(finish(twice), (std::vector{End(0, "b\n"), End(1, "a\n"), End(137, "")}));
    // A signal does not cut a synchronous run short either, and Poll serves a shell's own
    // events without the pump.
    auto polled = std::make_shared<RecordingShell>(0);
    interruptIn(20ms);
    polled->Execute("sleep 0.1; echo late");
    EXPECT_EQ(End(polled->ErrorCode(), polled->Result().bytes()), End(0, "late\n"));
    polled = std::make_shared<RecordingShell>(1);
    polled->Execute("exit 6");
    for (int i = 0; i < 1000 && RecordingShell::ends.empty(); ++i) {
        std::this_thread::sleep_for(10ms);
        polled->Poll();
    }
    EXPECT_EQ(RecordingShell::ends, std::vector{End(6, "")});
    finish(polled);
    auto waited = std::make_shared<RecordingShell>(1);
    const auto begun = std::chrono::steady_clock::now();
    waited->Execute("sleep 0.1; exit 4");
    waited->Execute("exit 5");
    interruptIn(20ms);
    waited->waitWhileRunning(20000);  // returns once both have ended, long before its limit
    const auto waitedFor = std::chrono::steady_clock::now() - begun;
    EXPECT_TRUE(waitedFor >= 100ms && waitedFor < 10s);  // a signal does not cut it short
    EXPECT_TRUE(RecordingShell::ends.empty());
    // A pump until a condition holds returns as soon as it does.
    pump.runUntil(20000, [] { return RecordingShell::ends.size() == 2; });
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 20s);
    waited->Execute("exec sleep 30");
    waited->Write(host::String(std::string(1 << 20, 'x')));  // unread, so mostly lost
    waited->waitWhileRunning(50);
    EXPECT_TRUE(waited->IsRunning());
    waited->Close();
    EXPECT_EQ(finish(waited), (std::vector{End(4, ""), End(5, ""), End(137, "")}));
}

// Why a child could not start is kept: the first error of exec that is not "not found". A host
// that ignores SIGCHLD, whose children the kernel reaps itself, is not held by one that failed.
TEST_F(PumpTest, AChildThatCannotStartSaysWhyAndHoldsNobody) {
    const auto previous = std::signal(SIGCHLD, SIG_IGN);
    for (auto [path, error] :
         {std::pair{"/bin/true", 0}, {"/nonexistent/tool", ENOENT}, {"/dev/null", EACCES}}) {
        EXPECT_EQ(host::ChildProcess({path}, {}).startError(), error) << path;
    }
    std::signal(SIGCHLD, previous);
}

// Signals we ignore stay ignored in a child, as they do across exec (a driver started under
// nohup keeps its pings from SIGHUP too); one that has ended and been waited for runs no more.
TEST_F(PumpTest, AChildKeepsTheSignalsWeIgnoreAndIsNotRunningOnceEnded) {
    const auto previous = std::signal(SIGHUP, SIG_IGN);
    host::ChildProcess child({"/bin/sh", "-c", "kill -HUP $$; exit 7"}, {});
    const auto status = child.poll(true);
    std::signal(SIGHUP, previous);
    EXPECT_EQ(status ? status->asExitStatus() : -1, 7);
    EXPECT_FALSE(child.running());
}

// Microseconds count from the program's start: the same offset from the monotonic clock
// whether or not the nanoseconds of now are below those of the start.
TEST(ClockTest, MicrosecondsKeepOneOffsetFromTheMonotonicClock) {
    const auto monotonic = [] {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
    };
    const auto belowStart = [&](double start) {
        return std::fmod(monotonic(), 1e6) < std::fmod(start, 1e6);
    };
    const double start = monotonic() - host::Microseconds();
    const bool below = belowStart(start);
    for (int i = 0; i < 1100 && belowStart(start) == below; ++i) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_NEAR(monotonic() - host::Microseconds(), start, 1000);
}

// A stack begins where the exception was raised, not in the code that makes it, and a frame
// without a name keeps its whole text, also where its file's path has a '+' (libstdc++'s has).
TEST(StackTest, BeginsWhereRaisedAndKeepsNamelessFramesWhole) {
    host::Array<host::String> stack;
    std::thread([&stack] { stack = host::RuntimeException().Stack; }).join();
    ASSERT_GE(stack.Count(), 1);
    EXPECT_EQ(stack[0].bytes().find("Exception"), std::string::npos) << stack[0].bytes();
    EXPECT_TRUE(std::ranges::any_of(stack, [](const host::String& frame) {
        return frame.bytes().find("libstdc++.so") != std::string::npos;
    }));
}

class RecordingSocket : public host::TCPSocket {
public:
    Names events;
    bool closeOnData = false;

protected:
    // The socket must count as connected inside its own event already.
    void Event_Connected() override { events.push_back(IsConnected() ? "connected" : "early"); }
    void Event_DataAvailable() override {
        events.push_back("data");
        if (closeOnData) {
            Close();
        }
    }
    void Event_SendComplete() override { events.push_back("sent"); }
    void Event_Error(const host::RuntimeException& err) override {
        events.push_back("error " + std::to_string(err.ErrorNumber));
    }
};

// Write sends what the kernel takes without waiting for a pump, and past the high-water mark the
// socket stops reading, so the peer's bytes wait in TCP; after the drain it reads again. Nothing is
// lost either way, every end is reported once, after the bytes before it, and a failure found
// inside Connect still waits for the pump.
TEST_F(PumpTest, SocketSendsInOrderPausesWhileBackedUpAndReportsEachEndOnceAfterItsData) {
    testsupport::LoopbackServer server;
    // Every byte value, and more than the kernel's buffers of both ends take.
    std::string up(std::size_t{16} << 20, '\0'), received;
    std::iota(up.begin(), up.end(), '\0');
    const std::string down = up.substr(0, 3 << 20);
    auto socket = std::make_shared<RecordingSocket>();
    socket->Address = "127.0.0.1";
    socket->Port = server.port();
    socket->Connect();
    socket->Write(host::String(up.substr(0, 6)));  // queued until connected
    ASSERT_TRUE(server.accept() && pumpUntil([&] { return socket->BytesLeftToSend() == 0; }));
    socket->Write(host::String(up.substr(6, 64 << 10)));  // from 64 KiB on, sent at once
    EXPECT_EQ(socket->BytesLeftToSend(), 0);
    socket->Write(host::String(up.substr(6 + (64 << 10))));
    EXPECT_TRUE(socket->IsBackedUp());
    server.send("waits");
    host::ConsoleApplication::DoEvents(100);
    EXPECT_EQ(socket->events, (Names{"connected", "sent"}));  // the first bytes, by the pump
    std::thread peer([&] {
        received = server.receive(20s, up.size());
        server.send(down);  // more than one turn reads
    });
    EXPECT_TRUE(pumpUntil([&] {
        return socket->BytesAvailable() == 5 + std::ssize(down) && socket->BytesLeftToSend() == 0;
    }));
    peer.join();
    EXPECT_TRUE(received == up);
    EXPECT_FALSE(socket->IsBackedUp());
    EXPECT_TRUE(socket->ReadAll().sameBytes(host::String("waits" + down)));
    socket->events = {};
    // The peer's last bytes and its close may come in one read: the bytes are reported first.
    server.send("end");
    server.closeClient();
    EXPECT_TRUE(pumpUntil([&] { return !socket->IsConnected(); }));
    EXPECT_EQ(socket->ReadAll().bytes(), "end");
    // Paused again, a peer that goes away with our bytes unread resets the link.
    socket->Connect();
    socket->Write(host::String(up));
    ASSERT_TRUE(server.accept() &&
                pumpUntil([&] { return socket->BytesLeftToSend() < std::ssize(up); }));
    server.closeClient();
    EXPECT_TRUE(pumpUntil([&] { return !socket->IsConnected(); }));
    EXPECT_FALSE(socket->IsBackedUp());
    socket->Port = 70000;
    socket->Connect();
    EXPECT_EQ(socket->events.size(), 4u);
    host::ConsoleApplication::DoEvents(20);
    EXPECT_EQ(socket->events,
              (Names{"data", "error 0", "connected", "error " + std::to_string(ECONNRESET),
                     "error " + std::to_string(EINVAL)}));
}

// Connected with nothing to send, the pump sleeps in poll(): a send watch left on would wake it
// at once, turn after turn, and burn the whole wait. A bounded flush sends without the pump, and
// gives up in its time (not before, whatever signal comes) on a peer that reads nothing. A send
// that fails is reported as such, and a handler that closes the socket hears nothing more of it.
TEST_F(PumpTest, SocketWithNothingToSendLetsThePumpSleepAndAFlushWaitsNoLongerThanAsked) {
    testsupport::LoopbackServer server;
    auto socket = std::make_shared<RecordingSocket>();
    socket->Address = "127.0.0.1";
    socket->Port = server.port();
    const auto connect = [&] {
        socket->Connect();
        return server.accept() && pumpUntil([&] { return socket->IsConnected(); });
    };
    ASSERT_TRUE(connect());
    socket->Write(host::String("sent by the pump"));
    ASSERT_TRUE(pumpUntil([&] { return socket->BytesLeftToSend() == 0; }));
    const double cpuFrom = testsupport::cpuSeconds(::getpid());
    host::ConsoleApplication::DoEvents(500);
    EXPECT_LT(testsupport::cpuSeconds(::getpid()) - cpuFrom, 0.05);

    socket->Write(host::String(", and by the flush"));
    socket->flushWithin(1000);
    EXPECT_EQ(server.receive(0ms), "sent by the pump, and by the flush");
    socket->Write(host::String(std::string(std::size_t{16} << 20, 'x')));
    const auto begun = std::chrono::steady_clock::now();
    interruptIn(50ms);
    socket->flushWithin(200);
    const auto waited = std::chrono::steady_clock::now() - begun;
    EXPECT_GT(socket->BytesLeftToSend(), 0);
    EXPECT_TRUE(waited >= 200ms && waited < 5s);

    // The first send after the peer has gone draws its reset, the second fails.
    ASSERT_TRUE(connect());
    server.closeClient();
    for (int i = 0; i < 2; ++i) {
        socket->Write(host::String(std::string(64 << 10, 'x')));
    }
    host::ConsoleApplication::DoEvents(20);
    // What another handler of the same turn flushed is not the pump's to report as sent.
    const int ready = ::eventfd(1, EFD_CLOEXEC);
    const auto flusher = pump.watch(ready, POLLIN, [&](short) { socket->Flush(); });
    ASSERT_TRUE(connect());  // its watch comes after the flusher's
    socket->Write(host::String("flushed"));
    host::ConsoleApplication::DoEvents(20);
    pump.unwatch(flusher);
    ::close(ready);
    EXPECT_EQ(server.receive(1s, 7), "flushed");
    ASSERT_TRUE(connect());
    socket->closeOnData = true;
    server.send("last");
    server.closeClient();
    EXPECT_TRUE(pumpUntil([&] { return !socket->IsConnected(); }));
    host::ConsoleApplication::DoEvents(20);
    EXPECT_EQ(socket->events,
              (Names{"connected", "sent", "connected", "error " + std::to_string(EPIPE),
                     "connected", "connected", "data"}));
}

}  // namespace
