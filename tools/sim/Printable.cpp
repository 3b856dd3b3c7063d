#include "tools/sim/Printable.h"

#include <algorithm>
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

// Byte offsets of the code points of `text`, and its size at the end.
std::vector<std::size_t> characterStarts(std::string_view text) {
    std::vector<std::size_t> starts;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if ((static_cast<unsigned char>(text[at]) & 0xC0) != 0x80) {
            starts.push_back(at);
        }
    }
    starts.push_back(text.size());
    return starts;
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
    const auto starts = characterStarts(text);
    const std::size_t shown = std::min(columns, starts.size() - 1);
    return std::string(text.substr(0, starts[shown])) + std::string(columns - shown, ' ');
}

std::string Printable::clip(std::string_view text, std::size_t columns) {
    const auto starts = characterStarts(text);
    if (starts.size() - 1 <= columns || columns == 0) {
        return fit(text, columns);
    }
    return std::string(text.substr(0, starts[columns - 1])) + "\xe2\x80\xa6";  // an ellipsis
}

std::vector<std::string> Printable::wrap(std::string_view text, std::size_t columns) {
    std::vector<std::string> lines;
    auto starts = characterStarts(text);
    std::size_t first = 0;  // index into starts
    while (columns > 0 && starts.size() - 1 - first > columns) {
        std::size_t cut = first + columns;
        for (std::size_t i = cut; i > first + columns / 2; --i) {
            if (text[starts[i]] == ' ') {
                cut = i;
                break;
            }
        }
        lines.emplace_back(text.substr(starts[first], starts[cut] - starts[first]));
        first = text[starts[cut]] == ' ' ? cut + 1 : cut;
    }
    lines.emplace_back(text.substr(starts[first]));
    return lines;
}

}  // namespace sim
