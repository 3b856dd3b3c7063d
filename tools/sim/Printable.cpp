#include "tools/sim/Printable.h"

#include <array>
#include <cstdio>

#include "host/StringFunctions.h"

namespace sim {

namespace {

// The length of the well-formed UTF-8 sequence at `at`, or 0; the C1 controls are not shown.
std::size_t sequenceLength(std::string_view text, std::size_t at) {
    char32_t point = 0;
    const std::size_t length = host::decodeUtf8(text, at, point);
    return point > 0x9F ? length : 0;
}

}  // namespace

std::string Printable::of(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (std::size_t at = 0; at < bytes.size();) {
        const auto c = static_cast<unsigned char>(bytes[at]);
        if (c >= 0x20 && c < 0x7F) {
            out += static_cast<char>(c);
            ++at;
        } else if (const std::size_t length = c >= 0x80 ? sequenceLength(bytes, at) : 0) {
            out.append(bytes.substr(at, length));
            at += length;
        } else {
            std::array<char, 5> escaped{};
            std::snprintf(escaped.data(), escaped.size(), "\\x%02x", c);
            out += escaped.data();
            ++at;
        }
    }
    return out;
}

std::string Printable::fit(std::string_view text, std::size_t columns) {
    std::string out;
    std::size_t used = 0;
    for (std::size_t at = 0; at < text.size() && used < columns; ++used) {
        std::size_t next = at + 1;
        while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xC0) == 0x80) {
            ++next;
        }
        out.append(text.substr(at, next - at));
        at = next;
    }
    out.append(columns - used, ' ');
    return out;
}

}  // namespace sim
