#pragma once

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdint>

namespace host {

// A moment on the monotonic clock by which a wait must be over.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(Clock::time_point at) : at_(at) {}
    static Deadline in(std::chrono::milliseconds time) { return Deadline(Clock::now() + time); }

    Clock::time_point at() const { return at_; }
    bool passed() const { return Clock::now() >= at_; }
    // What is left, as poll() wants it. Rounded up: a poll() that wakes a fraction of a
    // millisecond early would otherwise be asked for 0 and spin until the deadline.
    int pollTimeout() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(at_ - Clock::now()).count();
        return static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX));
    }

private:
    Clock::time_point at_;
};

}  // namespace host
