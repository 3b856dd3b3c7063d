#pragma once

#include <cstdint>
#include <vector>

#include "host/LocalNetworks.h"
#include "host/Shell.h"
#include "host/String.h"

// The one place that knows the network tools of this system. The scanning logic was written
// for BSD-style `ping` and `arp`; here they are called the Linux way, and what they print is
// brought back to the BSD form before the logic reads it.
namespace host::SystemTools {

// What a BSD sweep gets from its broadcast ping, a neighbour table that lists the hosts of the
// local LANs, made the Linux way, where hosts ignore broadcast echo. Blocks `sweep` (mode 0) for
// at most about 2 seconds: `fill` (kept from sweep to sweep) starts the neighbour fill of
// `ranges`; two echo requests go to the limited broadcast address with a deadline of 2 seconds
// (where nobody answers it would linger 10 seconds more); and where the broadcast ended sooner,
// the fill gets what is left of those 2 seconds. Nothing the tools print is read.
void fillNeighbourTable(Shell& sweep, Shell& fill, const std::vector<LocalNetworks::Range>& ranges);

// Makes the kernel resolve every address of `ranges`, so that the neighbour table lists every
// host that answers address resolution, also one that drops all echo requests: one fping per
// range, all at once, as asynchronous children of `shell`, whose children from an earlier fill
// are ended first (a hung tool must not live on). A missing tool is only a fill that did not
// happen.
void fillNeighbours(Shell& shell, const std::vector<LocalNetworks::Range>& ranges);

// The neighbour table as `arp -a -n` prints it, its lines in BSD form.
String neighbourTable(Shell& shell);

// Starts exactly two echo requests to `address`, one second apart, and waits up to 2 seconds
// after the second when nothing came back: about 3 seconds at most for an IP address. The
// address, without blanks at its ends, is one argument behind "--": never a shell word, never
// an option.
void startProbe(Shell& shell, const String& address);

// Linux `arp -a -n` lines in BSD form: "[ether]" and the flags after it leave the hardware
// address's place (the flags go to the end of the line), and "<incomplete>" reads
// "(incomplete)". Lines already in BSD form, and lines of any other kind, stay as they are.
String neighbourLinesInBsdForm(const String& output);

struct ProbeOutcome {
    std::int64_t exitCode;
    String output;
};

// What a BSD ping would have said: exit code 0 when at least one reply came back (the Linux
// tool exits 1 when fewer than asked for arrive by the deadline), and the "rtt" summary line
// shown as "round-trip".
ProbeOutcome probeOutcome(std::int64_t exitCode, const String& output);

}  // namespace host::SystemTools
