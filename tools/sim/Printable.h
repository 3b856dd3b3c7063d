#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sim {

// Makes bytes from the driver or a units file safe to show: control characters, C1 controls
// and bytes that are not UTF-8 become \xNN, so nothing received can steer the terminal.
class Printable {
public:
    static std::string of(std::string_view bytes);
    // The first `columns` characters, counting one per code point, padded with blanks.
    static std::string fit(std::string_view text, std::size_t columns);
};

}  // namespace sim
