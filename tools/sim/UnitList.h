#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/String.h"
#include "store/UnitListRecord.h"

namespace sim {

// The units the simulated controller holds, read from units files and --unit values. A unit is
// "uniqueid, name, address": the id a positive whole number used once, the name not empty, the
// address an IPv4 address, a host name or a hardware address, used once, letter case aside.
class UnitList {
public:
    using Unit = UnitListRecord::Unit;

    // One unit in the form above, given as a --unit value; returns all that is wrong with it,
    // joined by "; ", or nothing.
    std::optional<std::string> addUnit(std::string_view text);
    // Every line of a file; returns each bad line's problems, in order, as "FILE:LINE: what is
    // wrong", or nothing.
    std::vector<std::string> addFile(const std::string& path);

    const std::vector<Unit>& units() const { return units_; }
    // An address as units are told apart by: letter case aside.
    static std::string folded(std::string_view address);
    // The unit with this address, letter case aside.
    const Unit* findByAddress(std::string_view address) const;
    // The list as the controller sends it under "DATA".
    host::String toData() const { return UnitListRecord::of(units_)->SaveToString(); }

private:
    // A unit written at place, which a later unit with its id or address names.
    std::optional<std::string> add(std::string_view text, const std::string& place);
    // Takes the id, and the address unless it is empty, for the unit at place, even one with
    // other problems, so that a later unit using them again is reported in the same run. Adds
    // to problems those an earlier unit already has.
    void claim(std::int64_t id, std::string_view address, const std::string& place,
               std::vector<std::string>& problems);

    std::vector<Unit> units_;
    // Where each id was first written.
    std::unordered_map<std::int64_t, std::string> idPlaces_;
    // By the address in lower case: "unit ID at PLACE".
    std::unordered_map<std::string, std::string> addressOwners_;
};

}  // namespace sim
