#include "host/Ref.h"
#include "store/CXML.h"
#include "tools/sim/UnitList.h"

namespace sim {

host::String UnitList::toData() const {
    auto root = host::New<CXML>();
    root->Constructor();
    for (const SimUnit& unit : units_) {
        auto record = host::New<CXML>();
        record->Constructor();
        record->SetName("unit");
        record->SetIntegervalue("uniqueid", unit.uniqueid);
        record->SetStringValue("Name", host::String(std::string_view(unit.name)));
        record->SetStringValue("Address", host::String(std::string_view(unit.address)));
        root->InsertContainer(record);
    }
    return root->SaveToString();
}

}  // namespace sim
