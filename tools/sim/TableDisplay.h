#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/sim/PresenceTable.h"
#include "tools/sim/SweepClock.h"

namespace sim {

// For a terminal: the status, the presence table, the last log lines beneath it and the keys,
// redrawn in place with ANSI escapes whenever something changed. Every line fits the width.
class TableDisplay {
public:
    TableDisplay(const PresenceTable& table, const SweepClock& clock);

    // Draws the screen unless it is the one on the terminal already.
    void show(double now, const std::string& status);

    // The screen for a terminal of this size, one string per line.
    std::vector<std::string> screen(double now, const std::string& status, std::size_t columns,
                                    std::size_t lines) const;

private:
    std::string rowLine(const PresenceTable::Row& row, double now, std::size_t nameWidth) const;
    // What a row the driver has not reported on yet waits for.
    std::string waiting(const PresenceTable::Row& row, double now) const;

    const PresenceTable& table_;
    const SweepClock& clock_;
    std::string drawn_;
};

}  // namespace sim
