#pragma once

#include <cstdint>

namespace host {

// A colour as one 32-bit value: alpha in bits 24-31, red 16-23, green 8-15, blue 0-7.
struct Color {
    std::uint32_t value = 0;

    std::uint8_t Red() const { return static_cast<std::uint8_t>(value >> 16); }
    std::uint8_t Green() const { return static_cast<std::uint8_t>(value >> 8); }
    std::uint8_t Blue() const { return static_cast<std::uint8_t>(value); }
    std::uint8_t Alpha() const { return static_cast<std::uint8_t>(value >> 24); }
    friend bool operator==(Color a, Color b) { return a.value == b.value; }
};

// Each component is cut to its low byte.
inline Color RGB(std::int64_t red, std::int64_t green, std::int64_t blue, std::int64_t alpha = 0) {
    return Color{(static_cast<std::uint32_t>(alpha & 0xFF) << 24) |
                 (static_cast<std::uint32_t>(red & 0xFF) << 16) |
                 (static_cast<std::uint32_t>(green & 0xFF) << 8) |
                 static_cast<std::uint32_t>(blue & 0xFF)};
}

}  // namespace host
