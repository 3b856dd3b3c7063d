#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "host/Shell.h"
#include "host/String.h"
#include "scan/LocalNetworks.h"

// The one place that knows the network tools of this system. The scanning logic was written
// for BSD-style `ping`; here it is called the Linux way, and what it prints is brought back to
// the BSD form before the logic reads it.
namespace SystemTools {

// Makes the kernel resolve every address of `ranges`, so that the neighbour table lists every
// host that answers address resolution, also one that drops all echo requests: one fping per
// range, all at once, as asynchronous children of `fill`; and two echo requests to the limited
// broadcast address, for the hosts that answer those, a child of `broadcast`. Children of an
// earlier fill are ended first: a hung tool must not live on. A missing tool is only a fill
// that did not happen. Returns how long the fping runs should take.
std::chrono::milliseconds startFill(host::Shell& fill, host::Shell& broadcast,
                                    const std::vector<LocalNetworks::Range>& ranges);

// Starts exactly two echo requests to `address`, one second apart, and waits up to 2 seconds
// after the second when nothing came back: about 3 seconds at most for an IP address. The
// address, without blanks at its ends, is one argument behind "--": never a shell word, never
// an option.
void startProbe(host::Shell& shell, const host::String& address);

struct ProbeOutcome {
    std::int64_t exitCode;
    host::String output;
};

// What a BSD ping would have said: exit code 0 when at least one reply came back (the Linux
// tool exits 1 when fewer than asked for arrive by the deadline), and the "rtt" summary line
// shown as "round-trip".
ProbeOutcome probeOutcome(std::int64_t exitCode, const host::String& output);

}  // namespace SystemTools
