#pragma once

#include <chrono>
#include <optional>

#include "host/Ref.h"
#include "host/Shell.h"

// The tools that fill the kernel's neighbour table before a sweep reads it: fping over every
// address of this machine's LANs, and the broadcast echo. A sweep must read the table only once
// they are done, or the hosts they had not reached yet wait a whole period more; so the fill
// starts ahead of the sweep, by as long as the last one took, and the sweep serves the link
// while it waits for what is left.
class NeighbourFill {
public:
    // Starts the next sweep's fill once that sweep is due within the time a fill needs. Between
    // sweeps, from the run loop.
    void startAhead(double secondsToSweep);
    // Waits until this sweep's fill is over. A fill that ran ahead is waited for serving events,
    // until a close or kOverrun past its plan; without one, a fill starts now.
    void waitUntilOver();

private:
    using Clock = std::chrono::steady_clock;
    // The kernel's answers to the last requests, and the run loop's turn.
    static constexpr Clock::duration kSettle = std::chrono::milliseconds(500);
    static constexpr Clock::duration kOverrun = std::chrono::seconds(2);

    void start();

    host::Ref<host::Shell> tools_ = host::New<host::Shell>();
    // When the fill under way should be over; none when the next sweep has none yet.
    std::optional<Clock::time_point> plannedEnd_;
    // How long before a sweep the next fill starts: what the last one needed.
    Clock::duration lead_{};
};
