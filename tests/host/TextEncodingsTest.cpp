#include <gtest/gtest.h>

#include "host/StringFunctions.h"

using namespace host;

// Untagged bytes are read as UTF-8 only when valid, which an overlong form, a stray continuation
// or a lead without one is not, and the last two-byte and four-byte forms are. The byte after a
// lead has that lead's range and no other's: overlong forms after 0xE0 and 0xF0, surrogates
// after 0xED and code points past U+10FFFF after 0xF4 are refused (0 below).
TEST(TextEncodingsTest, UntaggedBytesAreUtf8OnlyWhenWellFormed) {
    using enum TextEncoding;
    // clang-format off
    const std::pair<String, std::string> texts[] = {
        {Chr(0xE9), "\xC3\xA9"}, {Chr(-1) + Chr(0xD800) + Chr(0xDFFF) + Chr(0x110000), ""},
        {Chr(0xD7FF) + Chr(0xE000) + Chr(0x10FFFF), "\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF"},
        {ConvertEncoding(String(std::string("\xC0\xAF")), UTF8), "\xC3\x80\xC2\xAF"},
        {ConvertEncoding(String("\xC3\xA9\xE2\x82\xAC"), Latin1), "\xE9?"},
        {ConvertEncoding(String("\x80", None), UTF8), "\xC2\x80"},
        {ConvertEncoding(String("\xC3(", None), UTF8), "\xC3\x83("},
        {ConvertEncoding(String("\xDF\xBF\xF4\x8F\xBF\xBF", None), Latin1), "??"}};
    const std::pair<std::string_view, char32_t> sequences[] = {
        {"\xE0\x9F\xBF", 0}, {"\xE0\xA0\x80", 0x800}, {"\xE2\x82\xAC", 0x20AC},
        {"\xED\x9F\xBF", 0xD7FF}, {"\xED\xA0\x80", 0}, {"\xEF\xBF\xBD", 0xFFFD},
        {"\xF0\x8F\xBF\xBF", 0}, {"\xF0\x90\x80\x80", 0x10000}, {"\xF1\x80\x80\x80", 0x40000},
        {"\xF0\x9F\x98\x80", 0x1F600}, {"\xF4\x8F\xBF\xBF", 0x10FFFF}, {"\xF4\x90\x80\x80", 0}};
    // clang-format on
    for (std::size_t row = 0; row < std::size(texts); ++row) {
        EXPECT_EQ(texts[row].first.bytes(), texts[row].second) << "text row " << row;
    }
    for (std::size_t row = 0; row < std::size(sequences); ++row) {
        const auto& [bytes, expected] = sequences[row];
        char32_t cp = 0;
        std::size_t length = decodeUtf8(bytes, 0, cp);
        EXPECT_EQ(std::pair(length, length == 0 ? U'\0' : cp),
                  std::pair(expected == 0 ? 0 : bytes.size(), expected))
            << "sequence row " << row;
    }
}
