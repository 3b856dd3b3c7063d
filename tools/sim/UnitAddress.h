#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sim {

// The forms a unit's address may take: an IPv4 address or a host name, which the driver pings,
// or a hardware address, which it finds in the neighbour table.
class UnitAddress {
public:
    // What is wrong with the address, or nothing when it has one of the forms.
    static std::optional<std::string> problem(std::string_view address);

private:
    static bool isHardware(std::string_view address);
    static bool isIPv4(std::string_view address);
    static bool isHostName(std::string_view address);
};

}  // namespace sim
