#include <gtest/gtest.h>
#include <time.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "host/Clock.h"
#include "host/Date.h"

using host::Date;

namespace {

// 2024-01-31 12:34:56.25 UTC, in a leap year and on a day that February lacks.
constexpr double kStart = 1706704496.25;
constexpr double kDay = 86400;

// Field arithmetic is checked in UTC, where no daylight saving shifts the hours.
class DateClockTest : public ::testing::Test {
protected:
    void SetUp() override {
        const char* tz = std::getenv("TZ");
        savedTz_ = tz ? std::optional<std::string>(tz) : std::nullopt;
        setenv("TZ", "UTC", 1);
        tzset();
    }
    void TearDown() override {
        savedTz_ ? setenv("TZ", savedTz_->c_str(), 1) : unsetenv("TZ");
        tzset();
    }

    std::optional<std::string> savedTz_;
};

TEST_F(DateClockTest, SettersNormaliseAndKeepElapsedSeconds) {
    using Fields = std::array<std::int64_t, 6>;
    // Setter, value, fields after, seconds moved.
    const std::tuple<void (Date::*)(std::int64_t), std::int64_t, Fields, double> cases[] = {
        {&Date::SetSecond, 56, {2024, 1, 31, 12, 34, 56}, 0},
        {&Date::SetSecond, 60, {2024, 1, 31, 12, 35, 0}, 4},
        {&Date::SetMinute, -1, {2024, 1, 31, 11, 59, 56}, -35 * 60},
        {&Date::SetHour, 25, {2024, 2, 1, 1, 34, 56}, 13 * 3600},
        {&Date::SetDay, 0, {2023, 12, 31, 12, 34, 56}, -31 * kDay},
        {&Date::SetDay, 60, {2024, 2, 29, 12, 34, 56}, 29 * kDay},
        {&Date::SetMonth, 2, {2024, 3, 2, 12, 34, 56}, 31 * kDay},
        {&Date::SetYear, 2023, {2023, 1, 31, 12, 34, 56}, -365 * kDay},
    };
    for (const auto& [set, value, expected, elapsed] : cases) {
        Date date(kStart);
        (date.*set)(value);
        Fields fields{date.Year(), date.Month(),  date.Day(),
                      date.Hour(), date.Minute(), date.Second()};
        EXPECT_EQ(std::pair(fields, date.TotalSeconds() - kStart), std::pair(expected, elapsed));
    }
}

TEST(DateClockTicksTest, TicksArePositiveMonotonicSixtiethsOfMicroseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::int64_t ticks = host::Ticks();
    // 1 + the sixtieths slept at least, in step with Microseconds.
    EXPECT_GE(ticks, 7);
    EXPECT_NEAR(static_cast<double>(ticks), 1 + host::Microseconds() * 60 / 1e6, 1.0);
    for (int i = 0; i < 10'000; ++i) {
        std::int64_t next = host::Ticks();
        ASSERT_GE(next, ticks);
        ticks = next;
    }
}

}  // namespace
