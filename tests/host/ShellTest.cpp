#include "host/Shell.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "ProcessStats.h"
#include "host/ShellNotRunningException.h"

namespace {

using host::EventPump;
using host::Shell;
using End = std::pair<std::int64_t, std::string>;

// Records every completion, also of objects their owner dropped, with what it saw.
class RecordingShell : public Shell {
public:
    static inline std::vector<End> ends;

protected:
    void Event_Completed() override { ends.emplace_back(ErrorCode(), Result().bytes()); }
};

class ShellTest : public ::testing::Test {
protected:
    void SetUp() override { RecordingShell::ends.clear(); }
    void TearDown() override {
        EXPECT_EQ(EventPump::instance().watchCount(), 0u);
        EXPECT_EQ(EventPump::instance().postedCount(), 0u);
        EXPECT_EQ(testsupport::childProcesses(), 0);
    }

    std::shared_ptr<RecordingShell> shell = std::make_shared<RecordingShell>();
};

TEST_F(ShellTest, SynchronousRunsReportCodeAndOutput) {
    struct Case {
        std::function<void(Shell&)> run;
        std::int64_t code;
        std::string result;
    };
    // printf is named without a directory: it is found through PATH.
    const std::vector<Case> cases = {
        {[](Shell& s) { s.Execute("exit 3"); }, 3, ""},
        {[](Shell& s) { s.Execute("echo out; echo err >&2"); }, 0, "out\nerr\n"},
        {[](Shell& s) { s.Execute("kill -9 $$"); }, 137, ""},
        {[](Shell& s) { s.Execute("/nonexistent/tool", "-x"); }, 127, ""},
        {[](Shell& s) { s.Execute("printf", "  %s|  a \t b   c  "); }, 0, "a|b|c|"},
        {[](Shell& s) {
             s.executeArguments("printf", {"%s\n", "a b; touch x", "-f", "", "$HOME"});
         },
         0, "a b; touch x\n-f\n\n$HOME\n"},
        {[](Shell& s) { s.Execute("cat; echo end"); }, 0, "end\n"},  // stdin is empty
        // A grandchild that keeps the output open must not hold the run past the child's end.
        {[](Shell& s) { s.Execute("sleep 90 & echo end"); }, 0, "end\n"},
        {[](Shell& s) { s.Execute("head -c 300000 /dev/zero"); }, 0, std::string(300000, '\0')},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        cases[i].run(*shell);
        EXPECT_EQ(shell->ErrorCode(), cases[i].code);
        EXPECT_TRUE(shell->Result().sameBytes(host::String(cases[i].result)));
    }
    EXPECT_TRUE(RecordingShell::ends.empty());
    EXPECT_THROW(shell->Write("x"), host::ShellNotRunningException);
}

TEST_F(ShellTest, AsynchronousRunsCompleteExactlyOnceInsideThePump) {
    struct Case {
        const char* executable;
        std::vector<const char*> scripts;  // one run each, the next started at once
        bool close;
        std::vector<End> ends;
    };
    const std::vector<Case> cases = {
        {"sh", {"echo hi; exit 4"}, false, {End(4, "hi\n")}},
        {"sh", {"sleep 30"}, true, {End(137, "")}},
        {"/nonexistent/tool", {""}, false, {End(127, "")}},
        {"sh", {"sleep 0.3; echo a; exit 1", "echo b"}, false, {End(0, "b\n"), End(1, "a\n")}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.scripts[0]);
        RecordingShell::ends.clear();
        auto owner = std::make_shared<RecordingShell>();
        owner->Mode = 1;
        for (const char* script : c.scripts) {
            owner->executeArguments(c.executable, {"-c", script});
        }
        if (c.close) {
            owner->Close();
        }
        // Dropped by its owner: only the pump keeps it, until its last completion.
        std::weak_ptr<RecordingShell> watcher = owner;
        owner.reset();
        EXPECT_TRUE(RecordingShell::ends.empty());
        for (int turn = 0; turn < 1000 && !watcher.expired(); ++turn) {
            EventPump::instance().run(10);
        }
        std::sort(RecordingShell::ends.begin(), RecordingShell::ends.end());
        EXPECT_EQ(RecordingShell::ends, c.ends);
    }
}

TEST_F(ShellTest, ManyRunsLeaveNoDescriptorsOrChildrenBehind) {
    const int descriptors = testsupport::openDescriptors();
    for (auto [mode, runs] : {std::pair{1, 1000}, std::pair{0, 200}}) {
        shell->Mode = mode;
        RecordingShell::ends.clear();
        for (int i = 0; i < runs; ++i) {
            shell->executeArguments("true", {});
            // One turn at a time: it returns as soon as the end has been served.
            for (int turn = 0; turn < 10 && shell->IsRunning(); ++turn) {
                EventPump::instance().runOnce(1000);
            }
            ASSERT_EQ(shell->ErrorCode(), 0) << "mode " << mode << ", run " << i;
        }
        EXPECT_EQ(RecordingShell::ends.size(), mode == 1 ? std::size_t(runs) : 0u);
    }
    EXPECT_EQ(testsupport::openDescriptors(), descriptors);
}

}  // namespace
