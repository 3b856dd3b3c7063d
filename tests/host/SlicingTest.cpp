#include <gtest/gtest.h>

#include "host/StringFunctions.h"

using namespace host;

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
