#include <gtest/gtest.h>
#include <time.h>

#include <array>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

#include "host/Array.h"
#include "host/Base64.h"
#include "host/Date.h"
#include "host/Dictionary.h"
#include "host/IOException.h"
#include "host/IllegalCastException.h"
#include "host/KeyNotFoundException.h"
#include "host/NilObjectException.h"
#include "host/OutOfBoundsException.h"
#include "host/Ref.h"
#include "host/StringFunctions.h"

namespace host {
namespace {

using enum TextEncoding;

const String kUtf8("h\xC3\xA9llo", UTF8);  // "héllo": 5 characters, 6 bytes
const String kRaw("h\xC3\xA9llo", None);

TEST(StringTest, EqualityFoldsOnlyAsciiLettersAndConcatenationMergesTags) {
    EXPECT_EQ(String("MAC Address"), String("mac address"));
    EXPECT_NE(String("\xC3\x89"), String("\xC3\xA9"));  // É and é
    EXPECT_NE(String("@"), String("`"));                // differ only by the 0x20 bit
    EXPECT_EQ((String("a") + String(std::string("b"))).encoding(), None);
    // An empty side, on either hand, takes no part in the tag.
    EXPECT_EQ((String() + String("a") + String()).encoding(), UTF8);
}

TEST(StringTest, FunctionsCountCharactersOnlyInUtf8AndPositionsFromOne) {
    const std::vector<std::pair<String, std::string>> texts = {
        {Left(kUtf8, 2), "h\xC3\xA9"},     {Left(kRaw, 2), "h\xC3"},
        {Right(kUtf8, 4), "\xC3\xA9llo"},  {Right(kRaw, 4), "\xA9llo"},
        {Mid(kUtf8, 2, 2), "\xC3\xA9l"},   {Mid(kUtf8, 1, -3), ""},
        {LeftB(kUtf8, 2), "h\xC3"},        {MidB(kUtf8, -5), kUtf8.bytes()},
        {Chr(0xE9), "\xC3\xA9"},           {NthField("aXb,xc", "x", 3), "c"},
        {Split(kUtf8, "")[1], "\xC3\xA9"}, {Split(kRaw, "")[1], "\xC3"}};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        EXPECT_EQ(texts[i].first.bytes(), texts[i].second) << "row " << i;
    }
    EXPECT_EQ(Mid(kUtf8, 2).encoding(), UTF8);  // so a piece still counts characters
    EXPECT_EQ(std::pair(Len(kUtf8), Len(kRaw)), std::pair(5L, 6L));

    // Searches and separators ignore case.
    const std::vector<std::tuple<std::int64_t, String, const char*, std::int64_t>> positions = {
        {1, "abcabc", "BC", 2}, {3, "abcabc", "bc", 5}, {-4, "abcabc", "c", 3},
        {6, "abcabc", "bc", 0}, {4, "abc", "", 4},      {4, kUtf8, "l", 4},
        {1, kRaw, "l", 4},      {7, kUtf8, "", 0}};
    for (const auto& [start, text, find, position] : positions) {
        EXPECT_EQ(InStr(start, text, find), position) << start << " | " << text.bytes();
    }
    // Untagged bytes are read as UTF-8 only when valid, which an overlong form is not.
    EXPECT_EQ(ConvertEncoding(String(std::string("\xC0\xAF")), UTF8).bytes(), "\xC3\x80\xC2\xAF");
    EXPECT_EQ(ConvertEncoding(String("\xC3\xA9\xE2\x82\xAC"), Latin1).bytes(), "\xE9?");
    EXPECT_EQ(ReplaceAll("aaa Hello hello", "hello", "bye").bytes(), "aaa bye bye");
    EXPECT_EQ(ReplaceAll("aaa", "aa", "").bytes() + ReplaceAll("abc", "", "x").bytes(), "aabc");
}

TEST(StringTest, NumbersToTextAndBack) {
    const std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(
        (std::vector{Hex(-0x1A2B).bytes(), Str(1e15).bytes(), Str(-1e19).bytes(), Str(1e20).bytes(),
                     Str(1234567.89).bytes(), Str(-0.0).bytes()}),
        (std::vector<std::string>{"FFFFFFFFFFFFE5D5", "1000000000000000", "-10000000000000000000",
                                  "100000000000000000000", "1234568", "0"}));
    EXPECT_EQ(Str(-1e300).size(), 302u);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const auto t = &truncateToInt64;
    EXPECT_EQ((std::vector{t(-2.9), t(9223372036854774784.0), t(0x1p63), t(nan)}),
              (std::vector<std::int64_t>{-2, 9223372036854774784, lowest, lowest}));

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

TEST(Base64Test, BreaksLinesAndSkipsForeignBytes) {
    // plain, line length -> encoded, "|" for EndOfLine: a break after every full line only
    const std::vector<std::tuple<std::string, int, const char*>> known = {
        {"f", 0, "Zg=="},           {"fo", 0, "Zm8="},          {"\xFB\xFF\xBF", 0, "+/+/"},
        {"foobar", 4, "Zm9v|YmFy"}, {"foobar", 5, "Zm9vY|mFy"}, {"foobar", 8, "Zm9vYmFy"},
        {"f", 1, "Z|g|=|="}};
    for (const auto& [plain, line, encoded] : known) {
        const String text = ReplaceAll(encoded, "|", EndOfLine());
        EXPECT_TRUE(EncodeBase64(String(plain), line).sameBytes(text)) << encoded;
        EXPECT_EQ(DecodeBase64(text).bytes(), plain) << encoded;
    }
    // Foreign bytes are skipped, "=" ends the data, missing padding is tolerated.
    const std::vector<std::pair<std::string, std::string>> dirty = {
        {"Zm9v\r\nYmFy", "foobar"}, {"Zm9v*Ym!Fy", "foobar"}, {"Zm8", "fo"},
        {"\xFFZm9v\x80", "foo"},    {"Zg==Zm9v", "f"},        {"Zm9vY", "foo"}};
    for (const auto& [encoded, plain] : dirty) {
        EXPECT_EQ(DecodeBase64(String(encoded)).bytes(), plain) << encoded;
    }
    std::string all(256, '\0');
    std::iota(all.begin(), all.end(), '\0');
    EXPECT_TRUE(DecodeBase64(EncodeBase64(String(all), 76)).sameBytes(String(all)));
}

TEST(DictionaryTest, MixesKeyKindsOnBothSidesOfTheHashIndex) {
    for (int size : {3, 30}) {
        Dictionary<int> d;
        for (int i = 0; i < size; ++i) {
            d.SetValue(String("Key" + std::to_string(i)), i);
        }
        d.SetValue(0.0, -1);
        d.SetValue("KEY1", 100);  // overwrites in place, keeps the first spelling
        EXPECT_EQ(d.Key(1).stringValue().bytes(), "Key1");
        EXPECT_EQ(d.Value("key1"), 100);
        EXPECT_EQ(d.Value(-0.0), -1);
        EXPECT_FALSE(d.HasKey("0"));

        // Removing while walking a Keys() copy, down to a linear scan again.
        Array<DictionaryKey> keys = d.Keys();
        for (int i = 0; i < size - 2; ++i) {
            d.Remove(keys[i]);
        }
        ASSERT_EQ(d.Count(), 3);
        EXPECT_EQ(d.Key(0).stringValue().bytes(), "Key" + std::to_string(size - 2));
        EXPECT_EQ(*d.lookup(String("KEY" + std::to_string(size - 1))), size - 1);
        EXPECT_THROW(d.Value("Key0"), KeyNotFoundException);
        EXPECT_THROW(d.Key(3), OutOfBoundsException);
    }
}

TEST(ArrayRefTest, BoundsAndUseOfNilAreChecked) {
    EXPECT_EQ(Array<int>(2).Count(), 3);  // like Dim a(2)
    Array<int> a{10, 20};
    a.Insert(2, 30);  // at Count appends
    a.Insert(0, 5);
    a.Remove(1);
    EXPECT_EQ(std::vector<int>(a.begin(), a.end()), (std::vector<int>{5, 20, 30}));
    EXPECT_THROW(a[3], OutOfBoundsException);
    EXPECT_THROW(a[-1], OutOfBoundsException);
    EXPECT_THROW(a.Insert(4, 1), OutOfBoundsException);
    EXPECT_THROW(a.Resize(-2), OutOfBoundsException);

    Ref<RuntimeException> error = New<IOException>();
    EXPECT_TRUE(error == Cast<IOException>(error));
    EXPECT_FALSE(error == New<IOException>());
    EXPECT_THROW(Cast<NilObjectException>(error), IllegalCastException);
    EXPECT_TRUE(Cast<IOException>(Ref<RuntimeException>()).IsNil());
    EXPECT_THROW(Ref<String>()->size(), NilObjectException);
}

TEST(DateTest, SettersNormaliseAndKeepElapsedSeconds) {
    // In UTC, where no daylight saving shifts the hours; no other test reads local time.
    setenv("TZ", "UTC", 1);
    tzset();
    // 2024-01-31 12:34:56.25 UTC, in a leap year and on a day that February lacks.
    constexpr double kStart = 1706704496.25, kDay = 86400;
    using Fields = std::array<std::int64_t, 6>;
    // Setter, value, fields after, seconds moved.
    const std::tuple<void (Date::*)(std::int64_t), std::int64_t, Fields, double> cases[] = {
        {&Date::SetHour, 25, {2024, 2, 1, 1, 34, 56}, 13 * 3600},
        {&Date::SetDay, 0, {2023, 12, 31, 12, 34, 56}, -31 * kDay},
        {&Date::SetDay, 60, {2024, 2, 29, 12, 34, 56}, 29 * kDay},
        {&Date::SetMonth, 2, {2024, 3, 2, 12, 34, 56}, 31 * kDay}};
    for (const auto& [set, value, expected, elapsed] : cases) {
        Date date(kStart);
        (date.*set)(value);
        Fields fields{date.Year(), date.Month(),  date.Day(),
                      date.Hour(), date.Minute(), date.Second()};
        EXPECT_EQ(std::pair(fields, date.TotalSeconds() - kStart), std::pair(expected, elapsed));
    }
}

}  // namespace
}  // namespace host
