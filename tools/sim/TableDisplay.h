#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/sim/PresenceTable.h"
#include "tools/sim/SimDisplay.h"
#include "tools/sim/SweepClock.h"

namespace sim {

// For a terminal: the status, the presence table, the last log lines beneath it and the keys,
// redrawn in place with ANSI escapes whenever something changed. Every line fits the width.
class TableDisplay : public SimDisplay {
public:
    TableDisplay(const PresenceTable& table, const SweepClock& clock);
    ~TableDisplay() override;

    void event(double at, const std::string& line) override;
    void show(double now, const std::string& status) override;

    // The screen for a terminal of this size, one string per line.
    std::vector<std::string> screen(double now, const std::string& status, std::size_t columns,
                                    std::size_t lines) const;

private:
    std::string rowLine(const PresenceTable::Row& row, double now, std::size_t nameWidth) const;

    const PresenceTable& table_;
    const SweepClock& clock_;
    bool dirty_ = true;
    std::string lastStatus_;
    long lastSecond_ = -1;
};

}  // namespace sim
