#include <gtest/gtest.h>

#include "host/Base64.h"

using host::DecodeBase64, host::EncodeBase64;

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
