#include "tools/sim/UnitList.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>

#include "tools/sim/UnitAddress.h"

namespace sim {

namespace {

// The driver keeps ids as doubles; above this they would no longer be whole.
constexpr std::int64_t kLargestId = 9007199254740991;  // 2 to the 53rd, less one

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

bool sameFolded(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

}  // namespace

std::optional<std::string> UnitList::addUnit(std::string_view text) {
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
    const auto id = parseId(fields[0]);
    if (!id) {
        return "uniqueid \"" + std::string(fields[0]) + "\" is not a whole number from 1 to " +
               std::to_string(kLargestId);
    }
    const bool taken = std::any_of(units_.begin(), units_.end(),
                                   [&](const SimUnit& unit) { return unit.uniqueid == *id; });
    if (taken) {
        return "uniqueid " + std::to_string(*id) + " is already used";
    }
    if (fields[1].empty()) {
        return std::string("name is empty");
    }
    if (auto problem = UnitAddress::problem(fields[2])) {
        return problem;
    }
    units_.push_back(SimUnit{*id, std::string(fields[1]), std::string(fields[2])});
    return std::nullopt;
}

std::optional<std::string> UnitList::addLine(std::string_view line) {
    const std::string_view content = trimmed(line);
    if (content.empty() || content.front() == '#') {
        return std::nullopt;
    }
    return addUnit(content);
}

const SimUnit* UnitList::findByAddress(std::string_view address) const {
    const auto found = std::find_if(units_.begin(), units_.end(), [&](const SimUnit& unit) {
        return sameFolded(unit.address, address);
    });
    return found == units_.end() ? nullptr : &*found;
}

}  // namespace sim
