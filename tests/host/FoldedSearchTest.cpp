#include <gtest/gtest.h>

#include "host/StringFunctions.h"

using namespace host;

// Searches and separators match by the host's equality, which folds ASCII letters only.
TEST(FoldedSearchTest, AsciiLettersMatchWithoutCase) {
    EXPECT_EQ(String("MAC Zone"), String("mac zone"));
    EXPECT_NE(String("\xC3\x89"), String("\xC3\xA9"));  // É and é
    EXPECT_NE(String("@"), String("`"));                // differ only by the 0x20 bit
    const String utf8("h\xC3\xA9llo", TextEncoding::UTF8), raw("h\xC3\xA9llo", TextEncoding::None);
    // clang-format off
    const std::pair<String, std::string> texts[] = {
        {NthField("aXb,xc", "x", 3), "c"}, {NthField("aXb", "x", 1), "a"},
        {NthField("ab", "", 1), "ab"}, {Split(utf8, "")[1], "\xC3\xA9"},
        {Split(raw, "")[1], "\xC3"}, {Trim(" \t\r\n\v\fa b\f "), "a b"}, {Trim(" \t "), ""},
        {ReplaceAll("aaa Hello hello", "hello", "bye"), "aaa bye bye"},
        {ReplaceAll("aaa", "aa", "") + ReplaceAll("abc", "", "x"), "aabc"}};
    const std::pair<std::int64_t, std::int64_t> positions[] = {
        {InStr(1, "abcabc", "BC"), 2}, {InStr(3, "abcabc", "bc"), 5}, {InStr(-4, "abcabc", "c"), 3},
        {InStr(6, "abcabc", "bc"), 0}, {InStr(4, "abc", ""), 4}, {InStr(4, utf8, "l"), 4},
        {InStr(1, raw, "l"), 4}, {InStr(7, utf8, ""), 0}};
    // clang-format on
    for (std::size_t row = 0; row < std::size(texts); ++row) {
        EXPECT_EQ(texts[row].first.bytes(), texts[row].second) << "text row " << row;
    }
    for (std::size_t row = 0; row < std::size(positions); ++row) {
        EXPECT_EQ(positions[row].first, positions[row].second) << "position row " << row;
    }
}
