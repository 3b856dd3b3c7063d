#pragma once

#include <chrono>
#include <optional>

#include "host/Ref.h"
#include "host/Shell.h"

// The tools that fill the kernel's neighbour table before a sweep reads it: fping over every
// address of this machine's LANs, and the broadcast echo. A sweep must read the table only once
// the fill is done, or the hosts it had not reached yet wait a whole period more; so the fill
// starts ahead of the sweep, by as long as the last one took, and the sweep serves the link
// while it waits for what is left.
class NeighbourFill {
public:
    // Starts the next sweep's fill once that sweep is due within the time a fill needs. Between
    // sweeps, from the run loop.
    void startAhead(double secondsToSweep);
    // Serves events until this sweep's fill is over, starting one now if none runs ahead. A close
    // cuts the wait short; kOverrun past its plan, the sweep goes on without it.
    void waitUntilOver();

private:
    using Clock = std::chrono::steady_clock;
    static constexpr Clock::duration kOverrun = std::chrono::seconds(2);

    void start();

    host::Ref<host::Shell> fill_ = host::New<host::Shell>();
    // Not waited for: hosts answer it at once, and its deadline is only ping's own wait for more.
    host::Ref<host::Shell> broadcast_ = host::New<host::Shell>();
    // The fill under way, until its sweep has read the table.
    std::optional<Clock::time_point> started_;
    // How long the last fill was planned to take; none before the first.
    std::optional<Clock::duration> planned_;
};
