#pragma once

#include <string>
#include <vector>

#include "host/Ref.h"
#include "store/CXML.h"

namespace testsupport {

struct Unit {
    double id;
    std::string address;
    std::string name;
};

// The bytes that the controller sends under "DATA" of "setUnits". Inline, so that only the suites
// that use it link the record store.
inline std::string unitList(const std::vector<Unit>& units) {
    auto root = host::New<CXML>();
    root->Constructor();
    for (const Unit& unit : units) {
        auto child = host::New<CXML>();
        child->Constructor();
        child->SetName("unit");
        child->SetDoubleValue("uniqueid", unit.id);
        child->SetStringValue("Address", host::String(unit.address));
        child->SetStringValue("Name", host::String(unit.name));
        root->InsertContainer(child);
    }
    return root->SaveToString().bytes();
}

}  // namespace testsupport
