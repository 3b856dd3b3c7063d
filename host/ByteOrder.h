#pragma once

#include <cstdint>

// Unsigned values of 1 to 8 bytes in either byte order. Assembling bytes by shifts works on any
// host order, and compilers turn it into one load or store.
namespace host::byteorder {

template <int Width>
std::uint64_t load(const char* at, bool littleEndian) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(at);
    std::uint64_t value = 0;
    for (int i = 0; i < Width; ++i) {
        value = (value << 8) | bytes[littleEndian ? Width - 1 - i : i];
    }
    return value;
}

template <int Width>
void store(char* at, std::uint64_t value, bool littleEndian) {
    for (int i = 0; i < Width; ++i) {
        at[littleEndian ? i : Width - 1 - i] = static_cast<char>(value & 0xff);
        value >>= 8;
    }
}

}  // namespace host::byteorder
