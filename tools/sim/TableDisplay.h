#pragma once

#include <cstddef>
#include <string>

#include "tools/sim/PresenceTable.h"
#include "tools/sim/SimDisplay.h"

namespace sim {

// For a terminal: the presence table, the last log lines beneath it and the keys, redrawn in
// place with ANSI escapes whenever something changed.
class TableDisplay : public SimDisplay {
public:
    explicit TableDisplay(const PresenceTable& table);
    ~TableDisplay() override;

    void event(double at, const std::string& line) override;
    void show(const std::string& status) override;

private:
    const PresenceTable& table_;
    bool dirty_ = true;
    std::string lastStatus_;
};

}  // namespace sim
