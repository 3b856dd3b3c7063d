#include <gtest/gtest.h>

#include "host/StringFunctions.h"

using namespace host;

// Untagged bytes are read as UTF-8 only when valid, which an overlong form, a stray continuation
// or a lead without one is not, and the last two-byte and four-byte forms are.
TEST(TextEncodingsTest, UntaggedBytesAreUtf8OnlyWhenWellFormed) {
    using enum TextEncoding;
    // clang-format off
    const std::pair<String, std::string> texts[] = {
        {Chr(0xE9), "\xC3\xA9"}, {ConvertEncoding(String(std::string("\xC0\xAF")), UTF8), "\xC3\x80\xC2\xAF"},
        {ConvertEncoding(String("\xC3\xA9\xE2\x82\xAC"), Latin1), "\xE9?"},
        {ConvertEncoding(String("\x80", None), UTF8), "\xC2\x80"},
        {ConvertEncoding(String("\xC3(", None), UTF8), "\xC3\x83("},
        {ConvertEncoding(String("\xDF\xBF\xF4\x8F\xBF\xBF", None), Latin1), "??"}};
    // clang-format on
    for (std::size_t row = 0; row < std::size(texts); ++row) {
        EXPECT_EQ(texts[row].first.bytes(), texts[row].second) << "text row " << row;
    }
}
