#pragma once

#include <concepts>
#include <cstdint>

#include "host/Array.h"
#include "host/String.h"
#include "host/TextEncoding.h"

// The host's string functions, defined by subject in Slicing, FoldedSearch, NumberText and
// TextEncodings (.cpp). Positions count from 1. The B variants count bytes and ignore the
// encoding; the others count characters, which on a string without a tag are bytes. Searches
// (NthField, InStr, Split, ReplaceAll) match the separator by the host's equality, so ASCII
// letters match without case. Results keep the encoding tag of the text they came from.
namespace host {

std::int64_t LenB(const String& text);
String LeftB(const String& text, std::int64_t count);
String RightB(const String& text, std::int64_t count);
String MidB(const String& text, std::int64_t start);
String MidB(const String& text, std::int64_t start, std::int64_t length);
// The value of the first byte; 0 for the empty string.
std::int64_t AscB(const String& text);
// A one-byte string without a tag; n is cut to its low byte.
String ChrB(std::int64_t n);

std::int64_t Len(const String& text);
String Left(const String& text, std::int64_t count);
String Right(const String& text, std::int64_t count);
String Mid(const String& text, std::int64_t start);
String Mid(const String& text, std::int64_t start, std::int64_t length);

// Plain decimal digits; a double without fraction has no point.
String Str(std::int64_t n);
String Str(double n);
template <std::integral T>
String Str(T n) {
    return Str(static_cast<std::int64_t>(n));
}

// A double by a pattern of an optional "-" (sign only when negative), "#" integer digits and an
// optional "." with one "#" for each decimal kept, e.g. "#" and "-#.##########". Trailing zero
// decimals and a point without decimals are left out. Other patterns raise
// UnsupportedFormatException.
String Format(double value, const String& pattern);

// The number the text begins with, blanks skipped; "&h" reads hex digits and "&b" binary
// digits; 0.0 when there is no number.
double Val(const String& text);
// Truncation towards zero; values that do not fit, and NaN, give the lowest signed value.
std::int64_t truncateToInt64(double value);

// Capital hexadecimal digits without leading zeros; negative values as their 64-bit pattern.
String Hex(std::int64_t n);
inline std::uint64_t BitAnd(std::uint64_t a, std::uint64_t b) {
    return a & b;
}
inline std::uint64_t BitXor(std::uint64_t a, std::uint64_t b) {
    return a ^ b;
}

// Field n (from 1) of the text cut at every occurrence of the separator. Without the separator
// in the text field 1 is the whole text; a field past the last, or n below 1, is empty.
String NthField(const String& text, const String& separator, std::int64_t n);
// Position from 1 of find at or after start, or 0. An empty find is found at start.
std::int64_t InStr(std::int64_t start, const String& text, const String& find);
std::int64_t InStr(const String& text, const String& find);
// All pieces, empty ones included. An empty separator gives one piece per character.
Array<String> Split(const String& text, const String& separator);
// White space (blank, tab, CR, LF, VT, FF) stripped at both ends.
String Trim(const String& text);
String ReplaceAll(const String& text, const String& find, const String& replacement);
inline String EndOfLine() {
    return {"\n"};
}

// The character of a code point, as UTF-8.
String Chr(std::int64_t codePoint);
// Length of the well-formed UTF-8 sequence at offset i, with its code point in cp; 0 when the
// bytes there are not one (overlong forms, surrogates and values past U+10FFFF included).
std::size_t decodeUtf8(std::string_view s, std::size_t i, char32_t& cp);
// Tag bytes as an encoding, untouched.
String DefineEncoding(const String& text, TextEncoding encoding);
// Convert to an encoding. Untagged bytes that are valid UTF-8 are taken as UTF-8, other
// untagged bytes as Latin-1. Characters Latin-1 cannot hold become "?".
String ConvertEncoding(const String& text, TextEncoding encoding);
inline TextEncoding Encoding(const String& text) {
    return text.encoding();
}

}  // namespace host
