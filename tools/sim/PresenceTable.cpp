#include "tools/sim/PresenceTable.h"

#include <utility>

namespace sim {

PresenceTable::PresenceTable(const UnitList& units, std::size_t logLines)
    : units_(units), logLines_(logLines) {
    for (const UnitList::Unit& unit : units.units()) {
        row(unit.address);
    }
}

PresenceTable::Row& PresenceTable::row(std::string_view address) {
    const auto [at, isNew] = byAddress_.try_emplace(UnitList::folded(address), rows_.size());
    if (isNew) {
        const UnitList::Unit* unit = units_.findByAddress(address);
        Row fresh;
        fresh.address = address;
        fresh.name = unit != nullptr ? unit->name : std::string();
        fresh.isUnit = unit != nullptr;
        rows_.push_back(std::move(fresh));
    }
    return rows_[at->second];
}

const PresenceTable::Row& PresenceTable::setState(std::string_view address, State state,
                                                  double at) {
    Row& found = row(address);
    if (found.state != state) {
        found.state = state;
        found.changedAt = at;
    }
    return found;
}

const PresenceTable::Row& PresenceTable::setResponse(std::string_view address, std::string_view ip,
                                                     std::string_view responseTime) {
    Row& found = row(address);
    if (!ip.empty()) {
        found.ip = ip;
        const UnitList::Unit* unit = units_.findByAddress(ip);
        found.ipUnitName = unit != nullptr && !found.isUnit ? unit->name : std::string();
    }
    if (!responseTime.empty()) {
        found.responseTime = responseTime;
    }
    return found;
}

void PresenceTable::addLog(std::string text) {
    log_.push_back(LogLine{std::time(nullptr), std::move(text)});
    while (log_.size() > logLines_) {
        log_.pop_front();
    }
}

}  // namespace sim
