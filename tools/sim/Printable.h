#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// Makes bytes from the driver or a units file safe to show: control characters, C1 controls
// and bytes that are not UTF-8 become \xNN, so nothing received can steer the terminal.
class Printable {
public:
    static std::string of(std::string_view bytes);
    // The first `columns` characters, counting one per code point, padded with blanks.
    static std::string fit(std::string_view text, std::size_t columns);
    // Like fit, but text that does not fit ends in a mark that says so.
    static std::string clip(std::string_view text, std::size_t columns);
    // Lines of at most `columns` characters, broken after a blank where there is one.
    static std::vector<std::string> wrap(std::string_view text, std::size_t columns);
};

}  // namespace sim
