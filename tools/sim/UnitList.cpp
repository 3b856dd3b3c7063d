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

std::string UnitList::folded(std::string_view address) {
    std::string lower(address);
    for (char& c : lower) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return lower;
}

std::optional<std::string> UnitList::addUnit(std::string_view text) {
    return add(text, "--unit \"" + std::string(text) + "\"");
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
    const auto addressProblem = UnitAddress::problem(fields[2]);
    if (addressProblem) {
        problems.push_back(*addressProblem);
    }
    if (id) {
        claim(*id, addressProblem ? std::string_view() : fields[2], place, problems);
    }
    if (!problems.empty()) {
        std::string all = problems.front();
        for (auto more = problems.begin() + 1; more != problems.end(); ++more) {
            all += "; " + *more;
        }
        return all;
    }
    units_.push_back(SimUnit{*id, std::string(fields[1]), std::string(fields[2])});
    return std::nullopt;
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

std::optional<std::string> UnitList::addLine(std::string_view line, const std::string& place) {
    const std::string_view content = trimmed(line);
    if (content.empty() || content.front() == '#') {
        return std::nullopt;
    }
    return add(content, place);
}

const SimUnit* UnitList::findByAddress(std::string_view address) const {
    const auto found = std::find_if(units_.begin(), units_.end(), [&](const SimUnit& unit) {
        return sameFolded(unit.address, address);
    });
    return found == units_.end() ? nullptr : &*found;
}

}  // namespace sim
