#pragma once

#include <string>

namespace sim {

// Where the simulator shows what happens: one line per event, or a table redrawn in place.
class SimDisplay {
public:
    virtual ~SimDisplay() = default;
    // One event, as a line of printable text; `at` is seconds since the start.
    virtual void event(double at, const std::string& line) = 0;
    // Shows what was told since the last call, with the simulator's state in two lines.
    virtual void show(double now, const std::string& status) = 0;
};

}  // namespace sim
