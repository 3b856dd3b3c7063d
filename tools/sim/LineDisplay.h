#pragma once

#include "tools/sim/SimDisplay.h"

namespace sim {

// For output that is no terminal: one plain line per event, "12.3s what happened".
class LineDisplay : public SimDisplay {
public:
    void event(double at, const std::string& line) override;
    void show(double now, const std::string& status) override;
};

}  // namespace sim
