#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/Ref.h"
#include "store/CXML.h"

// The unit list as the controller sends it under "DATA" of "setUnits": a root record with one
// "unit" child per unit, holding its "uniqueid", "Address" and "Name".
class UnitListRecord {
public:
    struct Unit {
        std::int64_t uniqueid;
        std::string address;
        std::string name;
    };

    static host::Ref<CXML> of(const std::vector<Unit>& units);
    static std::string bytes(const std::vector<Unit>& units) {
        return of(units)->SaveToString().bytes();
    }
};
