#include <gtest/gtest.h>

#include <limits>

#include "host/StringFunctions.h"

using namespace host;

// Patterns round the shortest decimal that reads back as the value, so 2.675 gives 2.68.
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
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN(), lowest = -0x1p63;
    // clang-format off
    const std::pair<double, double> numbers[] = {
        {Str(-1e300).size(), 302}, {Format(1e300, "#").size(), 301}, {Val("1234.9"), 1234.9},
        {Val("  42abc"), 42}, {Val("\t-7"), -7}, {Val("abc"), 0}, {Val("-"), 0}, {Val("1e5"), 1e5},
        {Val("1E-2x"), 0.01}, {Val("2e+"), 2}, {Val("&hFF"), 255}, {Val("&H1f"), 31},
        {Val("&b102"), 2}, {Val("&h"), 0}, {Val("-1e999"), -inf}, {Val("1e-999"), 0},
        {Val("0.6666666667"), 0.6666666667},
        {truncateToInt64(-2.9), -2}, {truncateToInt64(0x1p63 - 1024), 0x1p63 - 1024},
        {truncateToInt64(0x1p63), lowest}, {truncateToInt64(nan), lowest}};
    // clang-format on
    for (std::size_t row = 0; row < std::size(numbers); ++row) {
        EXPECT_EQ(numbers[row].first, numbers[row].second) << "number row " << row;
    }
}
