#pragma once

#include <cstddef>
#include <ctime>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sim/UnitList.h"

namespace sim {

// What the driver has reported, per address in the order first seen, and its last log lines.
// The controller's units stand in the table from the start, without a state.
class PresenceTable {
public:
    enum class State { Unknown, On, Off };

    struct Row {
        std::string address;  // as the driver or the unit list wrote it
        std::string name;     // of the unit with this address, letter case aside
        bool isUnit = false;
        State state = State::Unknown;
        std::string responseTime;  // milliseconds, as the driver wrote them
        std::string ip;
        std::string ipUnitName;  // of the unit whose address is this row's IP
        double changedAt = -1;   // seconds since the start; -1 before the first state
    };

    struct LogLine {
        std::time_t clock;
        std::string text;
    };

    PresenceTable(const UnitList& units, std::size_t logLines);

    const Row& setState(std::string_view address, State state, double at);
    const Row& setResponse(std::string_view address, std::string_view ip,
                           std::string_view responseTime);
    void addLog(std::string text);

    const std::vector<Row>& rows() const { return rows_; }
    const std::deque<LogLine>& log() const { return log_; }

private:
    Row& row(std::string_view address);

    const UnitList& units_;
    std::size_t logLines_;
    std::vector<Row> rows_;
    std::map<std::string, std::size_t> byAddress_;  // lower-case address to row
    std::deque<LogLine> log_;
};

}  // namespace sim
