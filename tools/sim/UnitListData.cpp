#include "store/UnitListRecord.h"
#include "tools/sim/UnitList.h"

namespace sim {

host::String UnitList::toData() const {
    std::vector<UnitListRecord::Unit> units;
    for (const SimUnit& unit : units_) {
        units.push_back({unit.uniqueid, unit.address, unit.name});
    }
    return UnitListRecord::of(units)->SaveToString();
}

}  // namespace sim
