#include <gtest/gtest.h>

#include <string>

#include "tools/sim/Printable.h"

namespace {

using namespace std::string_literals;

TEST(PrintableTest, EscapesWhatCouldSteerTheTerminalAndKeepsText) {
    const std::pair<std::string, std::string> cases[] = {
        {"plain text 1.2", "plain text 1.2"},
        {"Küche €", "Küche €"},
        {"\x1b[2Jx\r\n\t", "\\x1b[2Jx\\x0d\\x0a\\x09"},
        {"a\0b\x7f"s, "a\\x00b\\x7f"},
        // C1 controls, stray continuation bytes, cut, overlong and surrogate sequences.
        {"\xc2\x9b[1m", "\\xc2\\x9b[1m"},
        {"\x80\xff", "\\x80\\xff"},
        {"end\xe2\x82", "end\\xe2\\x82"},
        {"\xc0\xaf\xed\xa0\x80", "\\xc0\\xaf\\xed\\xa0\\x80"},
    };
    for (const auto& [raw, shown] : cases) {
        EXPECT_EQ(sim::Printable::of(raw), shown);
    }
    EXPECT_EQ(sim::Printable::fit("Küche", 7), "Küche  ");
    EXPECT_EQ(sim::Printable::fit("Küche", 2), "Kü");
    EXPECT_EQ(sim::Printable::clip("Küche", 5), "Küche");
    EXPECT_EQ(sim::Printable::clip("Küchentür", 5), "Küch…");
}

TEST(PrintableTest, WrapsAtABlankWhereThereIsOneAndCountsCharactersNotBytes) {
    using Lines = std::vector<std::string>;
    const std::pair<std::pair<std::string, std::size_t>, Lines> cases[] = {
        {{"short", 10}, {"short"}},
        {{"one two three", 8}, {"one two", "three"}},
        {{"abcdefghij", 4}, {"abcd", "efgh", "ij"}},
        {{"äöü äöü äöü", 7}, {"äöü äöü", "äöü"}},
        {{"", 5}, {""}},
    };
    for (const auto& [input, lines] : cases) {
        EXPECT_EQ(sim::Printable::wrap(input.first, input.second), lines) << input.first;
    }
}

}  // namespace
