#include "tools/sim/UnitAddress.h"

#include <cctype>
#include <cstddef>

namespace sim {

namespace {

constexpr std::size_t kHardwareLength = 17;  // six groups of two and five colons
constexpr std::size_t kMostNameBytes = 253;
constexpr std::size_t kMostLabelBytes = 63;

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

bool UnitAddress::isHardware(std::string_view address) {
    if (address.size() != kHardwareLength) {
        return false;
    }
    for (std::size_t i = 0; i < address.size(); ++i) {
        const bool colonPlace = i % 3 == 2;
        const auto c = static_cast<unsigned char>(address[i]);
        if (colonPlace ? c != ':' : std::isxdigit(c) == 0) {
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

std::optional<std::string> UnitAddress::problem(std::string_view address) {
    const std::string quoted = "\"" + std::string(address) + "\"";
    if (address.empty()) {
        return "address is empty";
    }
    if (address.find(':') != std::string_view::npos) {
        if (isHardware(address)) {
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
