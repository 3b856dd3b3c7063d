#include "host/Clock.h"

#include <ctime>

namespace host {

namespace {

constexpr std::int64_t kNanosPerSecond = 1'000'000'000;

timespec monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

// A function-local static, so that a caller from another static initialiser still gets a
// settled mark.
const timespec& startMark() {
    static const timespec start = monotonicNow();
    return start;
}

// Touched during static initialisation, so that the count starts with the program and not with
// the first caller.
[[maybe_unused]] const timespec& programStart = startMark();

// Whole seconds and the nanoseconds beyond them since the start, nanoseconds never negative.
struct Elapsed {
    std::int64_t seconds;
    std::int64_t nanos;
};

Elapsed sinceStart() {
    const timespec& start = startMark();
    timespec now = monotonicNow();
    Elapsed elapsed{now.tv_sec - start.tv_sec, now.tv_nsec - start.tv_nsec};
    if (elapsed.nanos < 0) {
        elapsed.nanos += kNanosPerSecond;
        elapsed.seconds -= 1;
    }
    return elapsed;
}

}  // namespace

std::int64_t Ticks() {
    Elapsed elapsed = sinceStart();
    // Split so that a long uptime cannot overflow the nanosecond product.
    return 1 + elapsed.seconds * 60 + elapsed.nanos * 60 / kNanosPerSecond;
}

double Microseconds() {
    Elapsed elapsed = sinceStart();
    return static_cast<double>(elapsed.seconds) * 1e6 + static_cast<double>(elapsed.nanos) / 1e3;
}

}  // namespace host
