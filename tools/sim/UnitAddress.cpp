#include "tools/sim/UnitAddress.h"

#include <cctype>
#include <cstddef>

namespace sim {

namespace {

constexpr std::size_t kHardwareDigits = 12;
constexpr std::size_t kMostNameBytes = 253;
constexpr std::size_t kMostLabelBytes = 63;

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

bool UnitAddress::isHexGroups(std::string_view address, std::size_t width, char separator) {
    if (address.size() != kHardwareDigits + kHardwareDigits / width - 1) {
        return false;
    }
    for (std::size_t i = 0; i < address.size(); ++i) {
        const bool separatorPlace = i % (width + 1) == width;
        const char c = address[i];
        if (separatorPlace ? c != separator : std::isxdigit(static_cast<unsigned char>(c)) == 0) {
            return false;
        }
    }
    return true;
}

bool UnitAddress::isIPv4(std::string_view address) {
    int groups = 0;
    std::size_t at = 0;
    while (true) {
        const std::size_t dot = address.find('.', at);
        const std::string_view group = address.substr(at, dot - at);
        if (group.empty() || group.size() > 3) {
            return false;
        }
        int value = 0;
        for (char c : group) {
            if (!isDigit(c)) {
                return false;
            }
            value = value * 10 + (c - '0');
        }
        if (value > 255 || ++groups > 4) {
            return false;
        }
        if (dot == std::string_view::npos) {
            return groups == 4;
        }
        at = dot + 1;
    }
}

bool UnitAddress::isHostName(std::string_view address) {
    if (address.empty() || address.size() > kMostNameBytes) {
        return false;
    }
    std::size_t at = 0;
    while (true) {
        const std::size_t dot = address.find('.', at);
        const std::string_view label = address.substr(at, dot - at);
        if (label.empty() || label.size() > kMostLabelBytes || label.front() == '-' ||
            label.back() == '-') {
            return false;
        }
        for (char c : label) {
            if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '-') {
                return false;
            }
        }
        if (dot == std::string_view::npos) {
            return true;
        }
        at = dot + 1;
    }
}

std::optional<std::string> UnitAddress::misspelledHardware(std::string_view address) {
    const bool bare = isHexGroups(address, kHardwareDigits, 0);
    if (!bare && !isHexGroups(address, 2, '-') && !isHexGroups(address, 4, '.')) {
        return std::nullopt;
    }
    // The driver finds a hardware address in the neighbour table by its colon form alone.
    std::string colons;
    for (const char c : address) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) {
            continue;
        }
        if (colons.size() % 3 == 2) {
            colons += ':';
        }
        colons += c;
    }
    return "hardware address \"" + std::string(address) +
           "\" must be written with colons: " + colons +
           (bare ? " (a host name of twelve hex digits needs its domain)" : "");
}

std::optional<std::string> UnitAddress::problem(std::string_view address) {
    const std::string quoted = "\"" + std::string(address) + "\"";
    if (address.empty()) {
        return "address is empty";
    }
    // Before the dotted quad's test, which twelve decimal digits would also reach.
    if (auto misspelled = misspelledHardware(address)) {
        return misspelled;
    }
    if (address.find(':') != std::string_view::npos) {
        if (isHexGroups(address, 2, ':')) {
            return std::nullopt;
        }
        return "address " + quoted +
               " is not a hardware address (six two-digit hex groups joined by colons)";
    }
    // Digits and dots alone would reach ping as a shortened address form, so they must be a
    // whole dotted quad.
    if (address.find_first_not_of("0123456789.") == std::string_view::npos) {
        if (isIPv4(address)) {
            return std::nullopt;
        }
        return "address " + quoted + " is not an IPv4 address";
    }
    if (isHostName(address)) {
        return std::nullopt;
    }
    return "address " + quoted + " is not a host name";
}

}  // namespace sim
