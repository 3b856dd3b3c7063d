#pragma once

#include <cstdint>
#include <string_view>

#include "host/String.h"

// Positions in a text count characters when it is tagged UTF-8, bytes otherwise. The slicing
// and the searches share this arithmetic so that both cut a text at the same places.
namespace host {

inline constexpr std::size_t kNotFound = std::string_view::npos;

inline bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}
inline bool countsCharacters(const String& text) {
    return text.encoding() == TextEncoding::UTF8;
}
std::size_t characterCount(std::string_view bytes);
// Byte offset of the unit at index (from 0), or the size when the text is shorter.
std::size_t unitOffset(std::string_view bytes, std::uint64_t index, bool characters);
// At most length bytes from offset, keeping the text's tag.
String slice(const String& text, std::size_t offset, std::size_t length);

}  // namespace host
