#pragma once

#include <string>

#include "tools/sim/PresenceTable.h"
#include "tools/sim/SweepClock.h"

namespace sim {

// Why a row of the presence table shows what it shows, where the table alone would leave the
// user guessing.
class RowHint {
public:
    // What a row the driver has not reported on yet waits for.
    static std::string waiting(const PresenceTable::Row& row, const SweepClock& clock, double now);
    // An "OFF" under a hardware address says less than it seems: see offByHardwareNote.
    static bool isOffByHardware(const PresenceTable::Row& row);
    static const char* offByHardwareNote();
};

}  // namespace sim
