#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/String.h"
#include "tools/sim/SimUnit.h"

namespace sim {

// The units the simulated controller holds, read from units files and --unit values. A unit is
// "uniqueid, name, address": the id a positive whole number used once, the name not empty, the
// address an IPv4 address, a host name or a hardware address.
class UnitList {
public:
    // One unit in the form above; returns what is wrong with it, or nothing.
    std::optional<std::string> addUnit(std::string_view text);
    // Like addUnit, but a blank line or one starting with '#' adds nothing.
    std::optional<std::string> addLine(std::string_view line);
    // Every line of a file; a problem reads "FILE:LINE: what is wrong".
    std::optional<std::string> addFile(const std::string& path);

    const std::vector<SimUnit>& units() const { return units_; }
    // The unit with this address, letter case aside.
    const SimUnit* findByAddress(std::string_view address) const;
    // The list as the controller sends it under "DATA": a root record with one "unit" child per
    // unit, each holding "uniqueid", "Name" and "Address".
    host::String toData() const;

private:
    std::vector<SimUnit> units_;
};

}  // namespace sim
