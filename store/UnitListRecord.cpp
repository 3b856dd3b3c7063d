#include "store/UnitListRecord.h"

host::Ref<CXML> UnitListRecord::of(const std::vector<Unit>& units) {
    auto root = host::New<CXML>();
    root->Constructor();
    for (const Unit& unit : units) {
        auto record = host::New<CXML>();
        record->Constructor();
        record->SetName("unit");
        record->SetIntegervalue("uniqueid", unit.uniqueid);
        record->SetStringValue("Address", host::String(unit.address));
        record->SetStringValue("Name", host::String(unit.name));
        root->InsertContainer(record);
    }
    return root;
}
