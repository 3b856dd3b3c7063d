#include "host/EventPump.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "ProcessStats.h"
#include "host/ConsoleApplication.h"
#include "host/EndException.h"
#include "host/ExceptionWrapper.h"
#include "host/IOException.h"
#include "host/ThreadEndException.h"

namespace {

using host::EventPump;
using Names = std::vector<std::string>;

class EventPumpTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::ExceptionWrapper::setHandler([this](const host::RuntimeException& err) {
            handled.push_back(err.className());
            return true;
        });
    }
    void TearDown() override {
        host::ExceptionWrapper::setHandler({});
        ::close(ready);
        EXPECT_EQ(pump.watchCount(), 0u);
        EXPECT_EQ(pump.postedCount(), 0u);
        EXPECT_EQ(testsupport::childProcesses(), 0);
    }

    EventPump& pump = EventPump::instance();
    Names handled;
    // Readable until read, which no test does: every watch on it is ready.
    int ready = ::eventfd(1, EFD_CLOEXEC);
};

TEST_F(EventPumpTest, FailingHandlersRunOnlyInsideThePumpAndReachTheInstalledHandler) {
    struct Case {
        std::function<void()> fail;
        const char* seenAs;  // nullptr: swallowed without the handler
    };
    const std::vector<Case> cases = {
        {[] { throw host::IOException(host::String("disk")); }, "IOException"},
        {[] { throw std::bad_alloc(); }, "OutOfMemoryException"},
        {[] { throw std::out_of_range("at"); }, "OutOfBoundsException"},
        {[] { throw std::bad_cast(); }, "IllegalCastException"},
        {[] { throw std::runtime_error("x"); }, "RuntimeException"},
        {[] { throw 42; }, "RuntimeException"},
        {[] { throw host::EndException(); }, nullptr},
        {[] { throw host::ThreadEndException(); }, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.seenAs ? c.seenAs : "swallowed");
        handled.clear();
        int served = 0;
        auto fail = [&] {
            ++served;
            c.fail();
        };
        auto id = pump.watch(ready, POLLIN, [&](short) { fail(); });
        pump.post(fail);
        EXPECT_EQ(served, 0);
        pump.runOnce(0);
        pump.unwatch(id);
        EXPECT_EQ(served, 2);
        EXPECT_EQ(handled, (c.seenAs ? Names{c.seenAs, c.seenAs} : Names{}));
    }
}

TEST_F(EventPumpTest, HandlerMayUnwatchItselfAndAnotherReadyWatch) {
    // The watches hold the only reference: the object must outlive its own unwatch.
    auto owner = std::make_shared<int>(0);
    std::weak_ptr<int> object = owner;
    std::vector<bool> aliveAfterUnwatch;  // one entry per handler run
    EventPump::WatchId first = 0, second = 0;
    auto unwatchBoth = [&](short) {
        pump.unwatch(first);
        pump.unwatch(second);
        aliveAfterUnwatch.push_back(!object.expired());
    };
    first = pump.watch(ready, POLLIN, unwatchBoth, owner);
    second = pump.watch(ready, POLLIN, unwatchBoth, owner);
    owner.reset();
    pump.runOnce(0);
    EXPECT_EQ(aliveAfterUnwatch, std::vector<bool>{true});
    EXPECT_TRUE(object.expired());
}

TEST_F(EventPumpTest, PostedTasksRunInLaterTurnsOfTheSameDoEvents) {
    // Each task posts the next, which waits for the next turn but must not wait for the
    // turn's poll to time out.
    std::vector<int> order;
    std::function<void(int)> chain = [&](int n) {
        order.push_back(n);
        if (n % 10 < 3) {
            pump.post([&chain, n] { chain(n + 1); });
        }
    };
    pump.post([&] { chain(1); });
    pump.post([&] { chain(11); });
    pump.runOnce(0);
    EXPECT_EQ(order, (std::vector<int>{1, 11}));
    host::ConsoleApplication::DoEvents(200);
    EXPECT_EQ(order, (std::vector<int>{1, 11, 2, 12, 3, 13}));
}

}  // namespace
