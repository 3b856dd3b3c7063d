#include "host/StringFunctions.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <vector>

namespace host {
namespace {

using enum TextEncoding;

const String kUtf8("h\xC3\xA9llo", UTF8);  // "héllo": 5 characters, 6 bytes
const String kRaw("h\xC3\xA9llo", None);

TEST(StringFunctionsTest, CountsCharactersOnlyInUtf8) {
    const std::vector<std::pair<String, std::string>> cases = {
        {Left(kUtf8, 2), "h\xC3\xA9"},    {Left(kRaw, 2), "h\xC3"},
        {Right(kUtf8, 4), "\xC3\xA9llo"}, {Right(kRaw, 4), "\xA9llo"},
        {Mid(kUtf8, 2, 2), "\xC3\xA9l"},  {Mid(kUtf8, 1, -3), ""},
        {LeftB(kUtf8, 2), "h\xC3"},       {Chr(13), "\r"},
        {MidB(kUtf8, -5), kUtf8.bytes()}, {Chr(0xE9), "\xC3\xA9"}};
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(cases[i].first.bytes(), cases[i].second) << "row " << i;
    }
    // A piece keeps the tag, so it still counts characters.
    EXPECT_EQ(Mid(kUtf8, 2).encoding(), UTF8);
    EXPECT_EQ(Len(kUtf8), 5);
    EXPECT_EQ(Len(kRaw), 6);
}

TEST(StringFunctionsTest, NumbersToText) {
    const std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(Str(lowest).bytes(), "-9223372036854775808");
    const std::vector<std::pair<double, std::string>> strs = {
        {3.0, "3"},  {0.5, "0.5"},    {123456789012345.0, "123456789012345"},
        {-0.0, "0"}, {1e15, "1e+15"}, {1234567.89, "1234568"}};
    for (const auto& [value, text] : strs) {
        EXPECT_EQ(Str(value).bytes(), text) << value;
    }
    EXPECT_EQ(Hex(0).bytes(), "0");
    EXPECT_EQ(Hex(-0x1A2B).bytes(), "FFFFFFFFFFFFE5D5");

    const std::vector<std::pair<double, std::int64_t>> truncations = {
        {2.9, 2},         {-2.9, -2},       {9223372036854774784.0, 9223372036854774784},
        {0x1p63, lowest}, {-1e300, lowest}, {std::numeric_limits<double>::quiet_NaN(), lowest}};
    for (const auto& [value, expected] : truncations) {
        EXPECT_EQ(truncateToInt64(value), expected) << value;
    }
}

TEST(StringFunctionsTest, ValAndFormatReadBack) {
    const double inf = std::numeric_limits<double>::infinity();
    const std::vector<std::pair<const char*, double>> vals = {
        {"1234.9", 1234.9}, {"  42abc", 42},  {"\t-7", -7},  {"abc", 0},   {"-", 0},
        {"1E-2x", 0.01},    {"2e+", 2},       {"&hFF", 255}, {"&H1f", 31}, {"&b102", 2},
        {"&h", 0},          {"-1e999", -inf}, {"1e-999", 0}};
    for (const auto& [text, value] : vals) {
        EXPECT_EQ(Val(String(text)), value) << text;
    }

    const char* frac = "-#.##########";
    const std::vector<std::tuple<double, const char*, std::string>> formats = {
        {5, frac, "5"},      {-2.25, frac, "-2.25"},     {2.0 / 3, frac, "0.6666666667"},
        {-4e-11, frac, "0"}, {0.99999999999, frac, "1"}, {-2.5, "#", "-3"},
        {9.5, "#", "10"},    {1e10, "#", "10000000000"}, {2.675, "#.##", "2.68"}};
    for (const auto& [value, pattern, text] : formats) {
        String formatted = Format(value, String(pattern));
        EXPECT_EQ(formatted.bytes(), text) << value << " " << pattern;
        EXPECT_EQ(Format(Val(formatted), String(pattern)).bytes(), text) << value;
    }
    EXPECT_EQ(Format(1e300, "#").size(), 301u);
}

TEST(StringFunctionsTest, SearchesMatchSeparatorsWithoutCase) {
    const String arp("? (10.0.0.2) at aa:bb:cc:dd:ee:ff on en0");
    EXPECT_EQ(NthField(NthField(arp, "AT ", 2), " ON", 1).bytes(), "aa:bb:cc:dd:ee:ff");
    const std::vector<std::tuple<String, const char*, std::int64_t, const char*>> fields = {
        {"a = b = c", " = ", 3, "c"}, {"a,,b", ",", 2, ""},   {"a,b", ",", 4, ""},
        {"a,b", ",", 0, ""},          {"a,b", ";", 1, "a,b"}, {"a,b", "", 2, ""}};
    for (const auto& [text, separator, n, field] : fields) {
        EXPECT_EQ(NthField(text, separator, n).bytes(), field) << text.bytes() << " | " << n;
    }

    // Positions count characters in UTF-8 text and bytes in untagged text.
    const std::vector<std::tuple<std::int64_t, String, const char*, std::int64_t>> positions = {
        {1, "abcabc", "BC", 2}, {3, "abcabc", "bc", 5}, {-4, "abcabc", "c", 3},
        {6, "abcabc", "bc", 0}, {1, "abc", "abcd", 0},  {4, "abc", "", 4},
        {4, kUtf8, "l", 4},     {1, kRaw, "l", 4},      {7, kUtf8, "", 0}};
    for (const auto& [start, text, find, position] : positions) {
        EXPECT_EQ(InStr(start, text, find), position) << start << " | " << text.bytes();
    }

    const std::vector<std::tuple<String, const char*, std::string>> splits = {
        {"a,,b", ",", "<a><><b>"},   {"", ",", "<>"},
        {"aXbxc", "x", "<a><b><c>"}, {kUtf8, "", "<h><\xC3\xA9><l><l><o>"},
        {"a = b", " = ", "<a><b>"},  {kRaw, "", "<h><\xC3><\xA9><l><l><o>"}};
    for (const auto& [text, separator, pieces] : splits) {
        std::string got;
        for (const String& piece : Split(text, separator)) {
            got += "<" + piece.bytes() + ">";
        }
        EXPECT_EQ(got, pieces) << text.bytes() << " | " << separator;
    }

    const std::vector<std::tuple<const char*, const char*, const char*, const char*>> replaces = {
        {"aaa", "aa", "b", "ba"},   {"Hello hello", "HELLO", "bye", "bye bye"},
        {"abc", "", "x", "abc"},    {"xx", "x", "", ""},
        {"a.b", ".", "::", "a::b"}, {"abc", "d", "x", "abc"}};
    for (const auto& [text, find, replacement, result] : replaces) {
        EXPECT_EQ(ReplaceAll(text, find, replacement).bytes(), result) << text << " | " << find;
    }
}

TEST(StringFunctionsTest, ConvertEncoding) {
    const std::string latin1E = "caf\xE9";
    const std::string utf8E = "caf\xC3\xA9";
    // Untagged bytes are read as UTF-8 only when valid, which an overlong form is not.
    const std::vector<std::tuple<std::string, TextEncoding, TextEncoding, std::string>> cases = {
        {latin1E, Latin1, UTF8, utf8E}, {utf8E + "\xE2\x82\xAC", UTF8, Latin1, latin1E + "?"},
        {latin1E, None, UTF8, utf8E},   {"\xC0\xAF", None, UTF8, "\xC3\x80\xC2\xAF"},
        {utf8E, None, UTF8, utf8E},     {utf8E, UTF8, None, utf8E}};
    for (const auto& [bytes, from, target, result] : cases) {
        String converted = ConvertEncoding(String(bytes, from), target);
        EXPECT_EQ(converted.bytes(), result) << bytes;
        EXPECT_EQ(converted.encoding(), target) << bytes;
    }
    EXPECT_EQ(Encoding(DefineEncoding(String(latin1E), Latin1)), Latin1);
}

}  // namespace
}  // namespace host
