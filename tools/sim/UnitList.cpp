#include "tools/sim/UnitList.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>

namespace sim {

namespace {

// The driver keeps ids as doubles; above this they would no longer be whole.
constexpr std::int64_t kLargestId = 9007199254740991;  // 2 to the 53rd, less one
constexpr std::size_t kHardwareDigits = 12;
constexpr std::size_t kMostNameBytes = 253;
constexpr std::size_t kMostLabelBytes = 63;

bool isHex(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

std::string_view trimmed(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::optional<std::int64_t> parseId(std::string_view text) {
    std::int64_t value = 0;
    if (text.empty() || std::isdigit(static_cast<unsigned char>(text.front())) == 0) {
        return std::nullopt;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 1 ||
        value > kLargestId) {
        return std::nullopt;
    }
    return value;
}

// Twelve hex digits in groups of `width` joined by `separator`; a width of 12 has none.
bool isHexGroups(std::string_view address, std::size_t width, char separator) {
    if (address.size() != kHardwareDigits + kHardwareDigits / width - 1) {
        return false;
    }
    for (std::size_t i = 0; i < address.size(); ++i) {
        const bool separatorPlace = i % (width + 1) == width;
        if (separatorPlace ? address[i] != separator : !isHex(address[i])) {
            return false;
        }
    }
    return true;
}

// True when every dot-separated label of the text passes the check.
template <class Check>
bool everyLabel(std::string_view text, Check check) {
    for (std::size_t at = 0;;) {
        const std::size_t dot = text.find('.', at);
        if (!check(text.substr(at, dot - at))) {
            return false;
        }
        if (dot == std::string_view::npos) {
            return true;
        }
        at = dot + 1;
    }
}

// For text of digits and dots alone.
bool isIPv4(std::string_view address) {
    return std::count(address.begin(), address.end(), '.') == 3 &&
           everyLabel(address, [](std::string_view group) {
               int value = 0;
               const char* end = group.data() + group.size();
               const auto parsed = std::from_chars(group.data(), end, value);
               return group.size() <= 3 && parsed.ec == std::errc() && parsed.ptr == end &&
                      value <= 255;
           });
}

bool isHostName(std::string_view address) {
    return !address.empty() && address.size() <= kMostNameBytes &&
           everyLabel(address, [](std::string_view label) {
               return !label.empty() && label.size() <= kMostLabelBytes && label.front() != '-' &&
                      label.back() != '-' && std::all_of(label.begin(), label.end(), [](char c) {
                          return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-';
                      });
           });
}

// What to say of a hardware address written other than with colons, or nothing.
std::optional<std::string> misspelledHardware(std::string_view address) {
    const bool bare = isHexGroups(address, kHardwareDigits, 0);
    if (!bare && !isHexGroups(address, 2, '-') && !isHexGroups(address, 4, '.')) {
        return std::nullopt;
    }
    // The driver finds a hardware address in the neighbour table by its colon form alone.
    std::string colons;
    for (const char c : address) {
        if (isHex(c)) {
            colons += colons.size() % 3 == 2 ? std::string(":") + c : std::string(1, c);
        }
    }
    return "hardware address \"" + std::string(address) +
           "\" must be written with colons: " + colons +
           (bare ? " (a host name of twelve hex digits needs its domain)" : "");
}

// What is wrong with a unit's address, or nothing when it is an IPv4 address or a host name,
// which the driver pings, or a hardware address, which it finds in the neighbour table.
std::optional<std::string> addressProblem(std::string_view address) {
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

}  // namespace

std::string UnitList::folded(std::string_view address) {
    std::string lower(address);
    for (char& c : lower) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return lower;
}

const UnitList::Unit* UnitList::findByAddress(std::string_view address) const {
    const std::string key = folded(address);
    const auto found = std::find_if(units_.begin(), units_.end(),
                                    [&](const Unit& unit) { return folded(unit.address) == key; });
    return found == units_.end() ? nullptr : &*found;
}

std::optional<std::string> UnitList::addUnit(std::string_view text) {
    return add(text, "--unit \"" + std::string(text) + "\"");
}

std::vector<std::string> UnitList::addFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return {path + ": cannot read: " + std::strerror(errno)};
    }
    std::vector<std::string> problems;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string place = path + ":" + std::to_string(number);
        const std::string_view content = trimmed(line);
        if (content.empty() || content.front() == '#') {
            continue;
        }
        if (auto problem = add(content, place)) {
            problems.push_back(place + ": " + *problem);
        }
    }
    if (in.bad()) {
        problems.push_back(path + ": cannot read: " + std::strerror(errno));
    }
    return problems;
}

std::optional<std::string> UnitList::add(std::string_view text, const std::string& place) {
    std::vector<std::string_view> fields;
    for (std::size_t at = 0;;) {
        const std::size_t comma = text.find(',', at);
        fields.push_back(trimmed(text.substr(at, comma - at)));
        if (comma == std::string_view::npos) {
            break;
        }
        at = comma + 1;
    }
    if (fields.size() != 3) {
        return "expected uniqueid, name, address: found " + std::to_string(fields.size()) +
               " field" + (fields.size() == 1 ? "" : "s");
    }
    // Every problem of the unit at once, so that it is mended in one go.
    std::vector<std::string> problems;
    const auto id = parseId(fields[0]);
    if (!id) {
        problems.push_back("uniqueid \"" + std::string(fields[0]) +
                           "\" is not a whole number from 1 to " + std::to_string(kLargestId));
    }
    if (fields[1].empty()) {
        problems.emplace_back("name is empty");
    }
    const auto badAddress = addressProblem(fields[2]);
    if (badAddress) {
        problems.push_back(*badAddress);
    }
    if (id) {
        claim(*id, badAddress ? std::string_view() : fields[2], place, problems);
    }
    if (problems.empty()) {
        units_.push_back(Unit{*id, std::string(fields[2]), std::string(fields[1])});
        return std::nullopt;
    }
    std::string all = problems.front();
    for (auto more = problems.begin() + 1; more != problems.end(); ++more) {
        all += "; " + *more;
    }
    return all;
}

void UnitList::claim(std::int64_t id, std::string_view address, const std::string& place,
                     std::vector<std::string>& problems) {
    const std::string unit = std::to_string(id);
    const auto idTaken = idPlaces_.emplace(id, place);
    if (!idTaken.second) {
        problems.push_back("uniqueid " + unit + " is already used at " + idTaken.first->second);
    }
    if (address.empty()) {
        return;
    }
    const auto addressTaken =
        addressOwners_.emplace(folded(address), "unit " + unit + " at " + place);
    if (!addressTaken.second) {
        problems.push_back("address " + std::string(address) + " is already " +
                           addressTaken.first->second);
    }
}

}  // namespace sim
