#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "DriverFixture.h"
#include "host/IOException.h"
#include "host/IllegalCastException.h"
#include "host/KeyNotFoundException.h"
#include "host/NilObjectException.h"
#include "host/OutOfBoundsException.h"
#include "host/OutOfMemoryException.h"
#include "host/ShellNotRunningException.h"
#include "host/StackOverflowException.h"
#include "host/TypeMismatchException.h"
#include "host/UnsupportedFormatException.h"

namespace {

TEST(AppTest, SweepIsDueOnlyAfterStrictlyMoreThanThirtySeconds) {
    const host::Date lastSweepEnd(1000000.0);
    struct Case {
        double elapsed;
        bool due;
    };
    for (Case c : {Case{0.0, false}, Case{29.999, false}, Case{30.0, false}, Case{30.001, true},
                   Case{600.0, true}, Case{-3600.0, false}}) {
        EXPECT_EQ(App::sweepIsDue(lastSweepEnd, host::Date(1000000.0 + c.elapsed)), c.due)
            << c.elapsed;
    }
}

using Raise = std::function<void()>;

struct GuardCase {
    Raise raise;
    std::string line;
};

template <class E>
Raise raising() {
    return [] { throw E(); };
}

class GuardTest : public DriverFixture, public ::testing::WithParamInterface<GuardCase> {};

TEST_P(GuardTest, NamesTheClassThenLogsTheStack) {
    try {
        GetParam().raise();
        FAIL() << "nothing raised";
    } catch (const host::RuntimeException& err) {
        ::testing::internal::CaptureStdout();
        EXPECT_TRUE(app.Event_UnhandledException(err));
        std::string expected = GetParam().line + "\n";
        for (const auto& frame : err.Stack) {
            expected += frame.bytes() + "\n";
        }
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), expected);
        EXPECT_GE(err.Stack.Count(), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    AllClasses, GuardTest,
    ::testing::Values(GuardCase{raising<host::OutOfBoundsException>(),
                                "An unhandled OutOfBounds Exception was trapped globally."},
                      GuardCase{raising<host::NilObjectException>(),
                                "An unhandled NilObject Exception was trapped globally."},
                      GuardCase{raising<host::IllegalCastException>(),
                                "An unhandled IllegalCastException was trapped globally."},
                      GuardCase{raising<host::KeyNotFoundException>(),
                                "An unhandled KeyNotFoundException was trapped globally."},
                      GuardCase{raising<host::OutOfMemoryException>(),
                                "An unhandled OutOfMemoryException was trapped globally."},
                      GuardCase{raising<host::ShellNotRunningException>(),
                                "An unhandled ShellNotRunningException was trapped globally."},
                      GuardCase{raising<host::StackOverflowException>(),
                                "A StackOverflowException has been handled globally."},
                      GuardCase{raising<host::TypeMismatchException>(),
                                "A TypeMismatchException has been handled globally."},
                      GuardCase{raising<host::UnsupportedFormatException>(),
                                "An UnsupportedFormatException has been handled globally."},
                      GuardCase{raising<host::IOException>(),
                                "an unhandled exception was trapped globally."},
                      GuardCase{[] { host::Array<int>(2)[3] = 1; },
                                "An unhandled OutOfBounds Exception was trapped globally."},
                      GuardCase{[] { host::Ref<App>()->SleepTime = 1; },
                                "An unhandled NilObject Exception was trapped globally."}));

TEST_F(DriverFixture, GuardWithEmptyStackWritesOneLine) {
    host::RuntimeException err;
    err.Stack = host::Array<host::String>();
    ::testing::internal::CaptureStdout();
    EXPECT_TRUE(app.Event_UnhandledException(err));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "an unhandled exception was trapped globally.\n");
}

}  // namespace
