#pragma once

#include <cstdint>

// How the driver paces its sweeps. The controller simulator tells the driver's sweeps from the
// wire by these same numbers.
namespace SweepTiming {

// A sweep is due once strictly more than this has passed since the previous one ended.
inline constexpr double kPeriodSeconds = 30.0;
// Each turn of the run loop serves events this long, then looks whether a sweep is due.
inline constexpr std::int64_t kLoopTurnMilliseconds = 250;
// The broadcast echo's deadline. The first sweep has no fill ahead of it and waits this long for
// its own; later sweeps find theirs over.
inline constexpr std::int64_t kBroadcastSeconds = 2;
// A probe sends two echo requests a second apart and waits this long for the last reply.
inline constexpr std::int64_t kProbeReplyWaitSeconds = 2;
inline constexpr double kProbeSeconds = 1.0 + kProbeReplyWaitSeconds;
// Pings that run at once.
inline constexpr std::int64_t kMostPings = 6;
// After the loop has ended, events are served this long before the process ends.
inline constexpr std::int64_t kLastEventsMilliseconds = 1000;

}  // namespace SweepTiming
