#pragma once

#include <cstdint>

namespace host {

// The encoding tag a string carries. None marks a raw byte buffer; Latin1 is the one 8-bit
// encoding, there so that converting to UTF-8 is a real conversion and not only a relabel.
enum class TextEncoding : std::uint8_t { None, UTF8, Latin1 };

namespace Encodings {
inline constexpr TextEncoding UTF8 = TextEncoding::UTF8;
inline constexpr TextEncoding Latin1 = TextEncoding::Latin1;
}  // namespace Encodings

}  // namespace host
