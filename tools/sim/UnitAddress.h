#pragma once

#include <cstddef>
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
    // Twelve hex digits in groups of `width` joined by `separator`; a width of 12 has none.
    static bool isHexGroups(std::string_view address, std::size_t width, char separator);
    static bool isIPv4(std::string_view address);
    static bool isHostName(std::string_view address);
    // What to say of a hardware address written other than with colons, or nothing.
    static std::optional<std::string> misspelledHardware(std::string_view address);
};

}  // namespace sim
