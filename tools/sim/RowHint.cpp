#include "tools/sim/RowHint.h"

#include <cmath>

namespace sim {

namespace {

// The driver reads the unit list after its first sweep, so a unit it pings is first pinged at
// the second.
constexpr int kFirstUnitPingSweep = 2;

bool isHardware(const std::string& address) {
    return address.find(':') != std::string::npos;
}

std::string inSeconds(double seconds) {
    return "in " + std::to_string(static_cast<long>(std::ceil(seconds))) + "s";
}

}  // namespace

std::string RowHint::waiting(const PresenceTable::Row& row, const SweepClock& clock, double now) {
    if (clock.stopped()) {
        return "no report before close";
    }
    if (clock.sweepAt(now) == 0) {
        return "waiting for the driver to ask for its units";
    }
    if (isHardware(row.address)) {
        return row.isUnit ? "told once the driver has read the unit list"
                          : "looked for in the neighbour table at every sweep";
    }
    if (clock.sweepAt(now) < kFirstUnitPingSweep) {
        return "first ping at sweep 2, " + inSeconds(clock.startOf(kFirstUnitPingSweep) - now);
    }
    return "first ping under way";
}

bool RowHint::isOffByHardware(const PresenceTable::Row& row) {
    return row.state == PresenceTable::State::Off && isHardware(row.address);
}

const char* RowHint::offByHardwareNote() {
    return "OFF* by hardware address: not in the neighbour table when the driver looked, or no "
           "answer to ping (some hosts drop every ping); the driver says ON only once that "
           "changes.";
}

}  // namespace sim
