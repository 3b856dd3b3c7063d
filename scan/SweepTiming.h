#pragma once

#include <cstdint>

// How the driver paces its sweeps. The controller simulator tells the driver's sweeps from the
// wire by these same numbers.
namespace SweepTiming {

// A sweep is due once strictly more than this has passed since the previous one ended.
inline constexpr double kPeriodSeconds = 30.0;
// Each turn of the run loop serves events this long, then looks whether a sweep is due.
inline constexpr std::int64_t kLoopTurnMilliseconds = 250;
// The broadcast echo's deadline.
inline constexpr std::int64_t kBroadcastSeconds = 2;
// A sweep reads the neighbour table once its fill's tools have ended. The fill ahead of it ends
// this much before it, for the kernel's answers to the last requests; the first sweep has none
// ahead of it and waits for its own, about this long on a home LAN.
inline constexpr std::int64_t kFillSettleMilliseconds = 500;
// A probe sends two echo requests a second apart and waits this long for the last reply.
inline constexpr std::int64_t kProbeReplyWaitSeconds = 2;
inline constexpr double kProbeSeconds = 1.0 + kProbeReplyWaitSeconds;
// Pings that run at once.
inline constexpr std::int64_t kMostPings = 6;
// After the loop has ended, events are served this long before the process ends.
inline constexpr std::int64_t kLastEventsMilliseconds = 1000;

}  // namespace SweepTiming
