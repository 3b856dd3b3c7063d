#include "host/Base64.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace host {
namespace {

TEST(Base64Test, KnownAndDirtyInput) {
    const std::vector<std::pair<std::string, std::string>> known = {
        {"", ""},        {"f", "Zg=="},          {"fo", "Zm8="},
        {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& [plain, encoded] : known) {
        EXPECT_EQ(EncodeBase64(String(plain)).bytes(), encoded);
        EXPECT_EQ(DecodeBase64(String(encoded)).bytes(), plain) << encoded;
    }
    // Foreign bytes are skipped, "=" ends the data, missing padding is tolerated.
    const std::vector<std::pair<std::string, std::string>> dirty = {
        {"Zm9v\r\nYmFy", "foobar"}, {"Zm9v*Ym!Fy", "foobar"}, {"Zm8", "fo"},
        {"\xFFZm9v\x80", "foo"},    {"Zg==Zm9v", "f"},        {"Zm9vY", "foo"}};
    for (const auto& [encoded, plain] : dirty) {
        EXPECT_EQ(DecodeBase64(String(encoded)).bytes(), plain) << encoded;
    }
}

TEST(Base64Test, LinesRoundTripEveryLength) {
    std::string all(256, '\0');
    std::iota(all.begin(), all.end(), '\0');
    for (std::size_t size : {0u, 1u, 2u, 57u, 58u, 256u}) {
        String data(all.substr(0, size));
        for (std::int64_t line : {0, 1, 5, 76}) {
            // A break after every full line, none after the last.
            std::string expected = EncodeBase64(data).bytes();
            for (std::size_t at = line; line > 0 && at < expected.size(); at += line + 1) {
                expected.insert(at, 1, '\n');
            }
            EXPECT_EQ(EncodeBase64(data, line).bytes(), expected) << size << " / " << line;
            EXPECT_TRUE(DecodeBase64(String(expected)).sameBytes(data)) << size << " / " << line;
        }
    }
}

}  // namespace
}  // namespace host
