#include <gtest/gtest.h>

#include <limits>

#include "host/Base64.h"
#include "host/FolderItem.h"
#include "host/StringFunctions.h"
#include "host/UnsupportedFormatException.h"

using namespace host;

// Encoding breaks after every full line only; decoding skips foreign bytes, stops at "=" and
// needs no padding.
TEST(Base64Test, LinesBreakOnlyWhenFullAndDecodingSkipsWhatIsNotBase64) {
    // clang-format off
    const std::pair<host::String, std::string> texts[] = {
        {EncodeBase64("f"), "Zg=="}, {EncodeBase64("fo"), "Zm8="},
        {EncodeBase64("\xFB\xFF\xBF"), "+/+/"}, {EncodeBase64("foobar", 4), "Zm9v\nYmFy"},
        {EncodeBase64("foobar", 5), "Zm9vY\nmFy"}, {EncodeBase64("foobar", 8), "Zm9vYmFy"},
        {EncodeBase64("f", 1), "Z\ng\n=\n="},
        {DecodeBase64("Z\ng\n=\n="), "f"}, {DecodeBase64("+/+/"), "\xFB\xFF\xBF"},
        {DecodeBase64("Zm9v*Ym!Fy"), "foobar"}, {DecodeBase64("Zm8"), "fo"},
        {DecodeBase64("\xFFZm9v\x80"), "foo"}, {DecodeBase64("Zg==Zm9v"), "f"}};
    // clang-format on
    for (std::size_t row = 0; row < std::size(texts); ++row) {
        EXPECT_EQ(texts[row].first.bytes(), texts[row].second) << "row " << row;
    }
}

// Positions count from 1, and characters only in UTF-8; the B variants count bytes. A piece keeps
// its tag, so that it still counts characters; an empty side of a concatenation takes no part.
TEST(SlicingTest, CharactersCountOnlyInUtf8) {
    const String utf8("h\xC3\xA9llo", TextEncoding::UTF8), raw("h\xC3\xA9llo", TextEncoding::None);
    // clang-format off
    const std::pair<String, std::string> pieces[] = {
        {Left(utf8, 2), "h\xC3\xA9"}, {Left(raw, 2), "h\xC3"}, {Right(utf8, 4), "\xC3\xA9llo"},
        {Right(raw, 4), "\xA9llo"}, {Mid(utf8, 2, 2), "\xC3\xA9l"}, {Mid(utf8, 1, -3), ""},
        {LeftB(utf8, 2), "h\xC3"}, {MidB(utf8, -5), utf8.bytes()}};
    // clang-format on
    for (std::size_t row = 0; row < std::size(pieces); ++row) {
        EXPECT_EQ(pieces[row].first.bytes(), pieces[row].second) << "row " << row;
    }
    EXPECT_EQ(Len(utf8), 5);
    EXPECT_EQ(Len(raw), 6);
    EXPECT_EQ(AscB(""), 0);
    EXPECT_EQ((String() + Mid(utf8, 2) + String()).encoding(), TextEncoding::UTF8);
    EXPECT_EQ((String("a") + String(std::string("b"))).encoding(), TextEncoding::None);
}

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

// Patterns round the shortest decimal that reads back as the value, so 2.675 gives 2.68. A sign
// without digits reads as 0, not as -0.
TEST(NumberTextTest, DigitsAndPatternsReadAndWriteTheSameNumbers) {
    const char* frac = "-#.##########";
    // clang-format off
    const std::pair<String, std::string> texts[] = {
        {Hex(-0x1A2B), "FFFFFFFFFFFFE5D5"}, {Str(1e15), "1000000000000000"},
        {Str(-1e19), "-10000000000000000000"}, {Str(1234567.89), "1234568"}, {Str(-0.0), "0"},
        {Format(5, frac), "5"}, {Format(-2.25, frac), "-2.25"}, {Format(-4e-11, frac), "0"},
        {Format(2.0 / 3, frac), "0.6666666667"}, {Format(0.99999999999, frac), "1"},
        {Format(-2.5, "#"), "-3"}, {Format(9.5, "#"), "10"}, {Format(1e10, "#"), "10000000000"},
        {Format(2.675, "#.##"), "2.68"}};
    // clang-format on
    for (std::size_t row = 0; row < std::size(texts); ++row) {
        EXPECT_EQ(texts[row].first.bytes(), texts[row].second) << "text row " << row;
    }
    EXPECT_THROW(Format(1, "#.x"), UnsupportedFormatException);
    EXPECT_THROW(Format(1, "x.#"), UnsupportedFormatException);
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN(), lowest = -0x1p63;
    // clang-format off
    const std::pair<double, double> numbers[] = {
        {Str(-1e300).size(), 302}, {Format(1e300, "#").size(), 301}, {Val("1234.9"), 1234.9},
        {Val("  42abc"), 42}, {Val("\t-7"), -7}, {Val("abc"), 0}, {1 / Val("-"), inf}, {1 / Val("-."), inf},
        {Val("1e5"), 1e5}, {Val("1E-2x"), 0.01}, {Val("2e+"), 2}, {Val("&hFF"), 255},
        {Val("&H1f"), 31},
        {Val("&b102"), 2}, {Val("&h"), 0}, {Val("-1e999"), -inf}, {Val("1e-999"), 0},
        {Val("0.6666666667"), 0.6666666667},
        {Val(String("0." + std::string(400, '0') + "1e0zzzzz")), 0},  // the exponent ends at the z
        {truncateToInt64(-2.9), -2}, {truncateToInt64(0x1p63 - 1024), 0x1p63 - 1024},
        {truncateToInt64(0x1p63), lowest}, {truncateToInt64(nan), lowest}};
    // clang-format on
    for (std::size_t row = 0; row < std::size(numbers); ++row) {
        EXPECT_EQ(numbers[row].first, numbers[row].second) << "number row " << row;
    }
}

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
        {Chr(0x7FF) + Chr(0x800) + Chr(0xFFFF) + Chr(0x10000),
         "\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80"},
        {ConvertEncoding(String(std::string("\xC0\xAF")), UTF8), "\xC3\x80\xC2\xAF"},
        {ConvertEncoding(String("\xC3\xA9\xE2\x82\xAC"), Latin1), "\xE9?"},
        {ConvertEncoding(String("\x80", None), UTF8), "\xC2\x80"},
        {ConvertEncoding(String("\xC3\xA9", Latin1), UTF8), "\xC3\x83\xC2\xA9"},
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

// A path keeps the slash that is all of it; a text that can name no path names no item.
TEST(FolderItemTest, APathKeepsTheSlashThatIsAllOfIt) {
    EXPECT_EQ(FolderItem("/").ShellPath().bytes(), "/");
    EXPECT_EQ(GetFolderItem("/tmp/a")->ShellPath().bytes(), "/tmp/a");
    EXPECT_EQ(GetFolderItem(""), nullptr);
    EXPECT_EQ(GetFolderItem(String(std::string("/tmp/a\0b", 8))), nullptr);
}
