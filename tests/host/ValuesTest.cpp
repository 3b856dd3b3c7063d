#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <numeric>

#include "ProcessStats.h"
#include "host/Base64.h"
#include "host/BinaryStream.h"
#include "host/FolderItem.h"
#include "host/IOException.h"
#include "host/OutOfBoundsException.h"
#include "host/StringFunctions.h"

namespace host {
namespace {

using enum TextEncoding;
using namespace std::string_literals;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
const String kUtf8("h\xC3\xA9llo", UTF8);  // "héllo": 5 characters, 6 bytes
const String kRaw("h\xC3\xA9llo", None);

// Characters count only in UTF-8, positions from 1, and searches and separators fold only ASCII.
TEST(StringTest, TextAndNumberFunctions) {
    EXPECT_EQ(String("MAC Zone"), String("mac zone"));
    EXPECT_NE(String("\xC3\x89"), String("\xC3\xA9"));  // É and é
    EXPECT_NE(String("@"), String("`"));                // differ only by the 0x20 bit
    // Concatenation merges tags; an empty side, on either hand, takes no part.
    EXPECT_EQ((String("a") + String(std::string("b"))).encoding(), None);
    // A piece keeps its tag, so that it still counts characters.
    EXPECT_EQ((String() + Mid(kUtf8, 2) + String()).encoding(), UTF8);
    // Untagged bytes are read as UTF-8 only when valid, which an overlong form, a stray
    // continuation or a lead without one is not, and the last two-byte and four-byte forms are.
    // A path keeps the slash that is all of it. Base64
    // breaks after every full line only; decoding skips foreign bytes, stops at "=" and needs no
    // padding.
    const char* frac = "-#.##########";
    // clang-format off
    const std::pair<String, std::string> texts[] = {
        {Left(kUtf8, 2), "h\xC3\xA9"}, {Left(kRaw, 2), "h\xC3"}, {Right(kUtf8, 4), "\xC3\xA9llo"},
        {Right(kRaw, 4), "\xA9llo"}, {Mid(kUtf8, 2, 2), "\xC3\xA9l"}, {Mid(kUtf8, 1, -3), ""},
        {LeftB(kUtf8, 2), "h\xC3"}, {MidB(kUtf8, -5), kUtf8.bytes()}, {Chr(0xE9), "\xC3\xA9"},
        {NthField("aXb,xc", "x", 3), "c"}, {NthField("ab", "", 1), "ab"},
        {Split(kUtf8, "")[1], "\xC3\xA9"}, {Split(kRaw, "")[1], "\xC3"},
        {ReplaceAll("aaa Hello hello", "hello", "bye"), "aaa bye bye"},
        {ReplaceAll("aaa", "aa", "") + ReplaceAll("abc", "", "x"), "aabc"},
        {ConvertEncoding(String(std::string("\xC0\xAF")), UTF8), "\xC3\x80\xC2\xAF"},
        {ConvertEncoding(String("\xC3\xA9\xE2\x82\xAC"), Latin1), "\xE9?"},
        {Hex(-0x1A2B), "FFFFFFFFFFFFE5D5"}, {Str(1e15), "1000000000000000"},
        {Str(-1e19), "-10000000000000000000"}, {Str(1234567.89), "1234568"}, {Str(-0.0), "0"},
        {Format(5, frac), "5"}, {Format(-2.25, frac), "-2.25"}, {FolderItem("/").ShellPath(), "/"},
        {Format(2.0 / 3, frac), "0.6666666667"}, {Format(-4e-11, frac), "0"},
        {Format(0.99999999999, frac), "1"}, {Format(-2.5, "#"), "-3"}, {Format(9.5, "#"), "10"},
        {Format(1e10, "#"), "10000000000"}, {Format(2.675, "#.##"), "2.68"},
        {EncodeBase64("f"), "Zg=="}, {EncodeBase64("fo"), "Zm8="},
        {EncodeBase64("\xFB\xFF\xBF"), "+/+/"}, {EncodeBase64("foobar", 4), "Zm9v\nYmFy"},
        {EncodeBase64("foobar", 5), "Zm9vY\nmFy"}, {EncodeBase64("foobar", 8), "Zm9vYmFy"},
        {EncodeBase64("f", 1), "Z\ng\n=\n="}, {DecodeBase64("Z\ng\n=\n="), "f"},
        {DecodeBase64("+/+/"), "\xFB\xFF\xBF"}, {DecodeBase64("Zm9v*Ym!Fy"), "foobar"},
        {DecodeBase64("Zm8"), "fo"}, {DecodeBase64("\xFFZm9v\x80"), "foo"},
        {DecodeBase64("Zg==Zm9v"), "f"}, {ConvertEncoding(String("\x80", None), UTF8), "\xC2\x80"},
        {ConvertEncoding(String("\xC3(", None), UTF8), "\xC3\x83("},
        {ConvertEncoding(String("\xDF\xBF\xF4\x8F\xBF\xBF", None), Latin1), "??"}};
    // clang-format on
    for (const auto& [got, expected] : texts) {
        EXPECT_EQ(got.bytes(), expected);
    }
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN(), lowest = -0x1p63;
    // clang-format off
    const std::pair<double, double> numbers[] = {
        {Len(kUtf8), 5}, {Len(kRaw), 6}, {Str(-1e300).size(), 302},
        {Format(1e300, "#").size(), 301}, {InStr(1, "abcabc", "BC"), 2},
        {InStr(3, "abcabc", "bc"), 5}, {InStr(-4, "abcabc", "c"), 3}, {InStr(6, "abcabc", "bc"), 0},
        {InStr(4, "abc", ""), 4}, {InStr(4, kUtf8, "l"), 4}, {InStr(1, kRaw, "l"), 4},
        {InStr(7, kUtf8, ""), 0}, {Val("1234.9"), 1234.9}, {Val("  42abc"), 42}, {Val("\t-7"), -7},
        {Val("abc"), 0}, {Val("-"), 0}, {Val("1E-2x"), 0.01}, {Val("2e+"), 2}, {Val("&hFF"), 255},
        {Val("&H1f"), 31}, {Val("&b102"), 2}, {Val("&h"), 0}, {Val("-1e999"), -inf},
        {Val("1e-999"), 0}, {Val("0.6666666667"), 0.6666666667}, {truncateToInt64(-2.9), -2},
        {truncateToInt64(0x1p63 - 1024), 0x1p63 - 1024}, {truncateToInt64(0x1p63), lowest},
        {truncateToInt64(nan), lowest}};
    // clang-format on
    for (std::size_t i = 0; i < std::size(numbers); ++i) {
        EXPECT_EQ(numbers[i].first, numbers[i].second) << "row " << i;
    }
}

enum class Kind { Text, Block, File, ReadOnlyFile };

// A stream of the kind over `bytes`, positioned at 0. A file goes through Create, the
// destructor's flush and a reopen.
const String name(::testing::TempDir() + "stream." + std::to_string(::getpid()));
Ref<BinaryStream> make(Kind kind, const std::string& bytes) {
    BinaryStream::Create(name)->Write(String("stale bytes, longer than any content"));
    BinaryStream::Create(name)->Write(String(bytes));  // must truncate the stale bytes
    auto block = New<MemoryBlock>(0);
    block->bytes() = bytes;
    return kind == Kind::Text    ? New<BinaryStream>(String(bytes))
           : kind == Kind::Block ? New<BinaryStream>(block)
                                 : BinaryStream::Open(name, kind == Kind::File);
}

TEST(StreamTest, ReadsStopAtTheDataWritesGrowAndFillGapsAndMisuseRaises) {
    const int descriptors = testsupport::openDescriptors();
    // Start, read, value read, position after.
    using Read = std::function<std::uint64_t(BinaryStream&)>;
    const std::tuple<std::int64_t, Read, std::uint64_t, std::int64_t> cases[] = {
        {1, [](BinaryStream& s) { return s.Read(10).size(); }, 3, 4},
        {-7, [](BinaryStream& s) { return s.Read(2).size(); }, 2, 2},
        {2, [](BinaryStream& s) { return s.ReadUInt16(); }, 0x6364, 4},
        {1, [](BinaryStream& s) { return s.ReadUInt32(); }, 0, 4},
        {kMax, [](BinaryStream& s) { return s.ReadUInt32(); }, 0, kMax},
        {kMax, [](BinaryStream& s) { return s.Read(kMax).size(); }, 0, kMax}};
    // Inside, across the end, past the end, then twice more than a file buffers.
    std::string big(100'000, '\0');
    std::iota(big.begin(), big.end(), '\0');
    const std::pair<std::int64_t, std::string> writes[] = {
        {2, "XY"}, {5, "123"}, {10, "AB"}, {12, big}, {12 + 100'000, big}};
    for (Kind kind : {Kind::Text, Kind::Block, Kind::File, Kind::ReadOnlyFile}) {
        for (const auto& [start, read, value, position] : cases) {
            auto stream = make(kind, "abcd");
            stream->SetPosition(start);
            auto got = read(*stream);
            EXPECT_EQ(std::tuple(got, stream->Position(), stream->Eof()),
                      std::tuple(value, position, position >= 4))
                << "start " << start << ", kind " << static_cast<int>(kind);
        }
        auto stream = make(kind, "abcdef");
        if (kind == Kind::Text || kind == Kind::ReadOnlyFile) {
            EXPECT_THROW(stream->WriteUInt32(1), IOException);
        } else {
            for (const auto& [at, data] : writes) {
                stream->SetPosition(at);
                stream->Write(String(data));
            }
            stream->SetPosition(0);
            EXPECT_TRUE(stream->Read(kMax).bytes() == "abXYe123\0\0AB"s + big + big);
        }
        stream->Close();
        EXPECT_THROW(stream->Read(1), IOException);
        EXPECT_THROW(stream->Write(String("x")), IOException);
    }
    // A zero-length access at the very end of a block touches nothing and is allowed.
    MemoryBlock block(8);
    EXPECT_EQ(block.StringValue(8, 0).bytes() + block.StringValue(0, 8).bytes(), std::string(8, 0));
    EXPECT_THROW(block.UInt32Value(kMax), OutOfBoundsException);
    // A failed flush raises from Close, but the destructor swallows it.
    auto full = BinaryStream::Create(String("/dev/full"));
    full->Write(String("x"));
    EXPECT_THROW(full->Close(), IOException);
    BinaryStream::Create(String("/dev/full"))->Write(String("x"));
    EXPECT_EQ(testsupport::openDescriptors(), descriptors);  // every file was closed
    std::remove(name.bytes().c_str());
}

}  // namespace
}  // namespace host
