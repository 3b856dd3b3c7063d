#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <numeric>

#include "ProcessStats.h"
#include "host/Base64.h"
#include "host/BinaryStream.h"
#include "host/IOException.h"
#include "host/OutOfBoundsException.h"
#include "host/StringFunctions.h"
#include "host/SystemTools.h"

namespace host {
namespace {

using enum TextEncoding;
using namespace std::string_literals;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
const String kUtf8("h\xC3\xA9llo", UTF8);  // "héllo": 5 characters, 6 bytes
const String kRaw("h\xC3\xA9llo", None);

TEST(StringTest, FunctionsCountCharactersOnlyInUtf8AndPositionsFromOneFoldingOnlyAscii) {
    EXPECT_EQ(String("MAC Address"), String("mac address"));
    EXPECT_NE(String("\xC3\x89"), String("\xC3\xA9"));  // É and é
    EXPECT_NE(String("@"), String("`"));                // differ only by the 0x20 bit
    // Concatenation merges tags; an empty side, on either hand, takes no part.
    EXPECT_EQ((String("a") + String(std::string("b"))).encoding(), None);
    EXPECT_EQ((String() + String("a") + String()).encoding(), UTF8);
    const std::vector<std::pair<String, std::string>> texts = {
        {Left(kUtf8, 2), "h\xC3\xA9"},    {Left(kRaw, 2), "h\xC3"},
        {Right(kUtf8, 4), "\xC3\xA9llo"}, {Right(kRaw, 4), "\xA9llo"},
        {Mid(kUtf8, 2, 2), "\xC3\xA9l"},  {Mid(kUtf8, 1, -3), ""},
        {LeftB(kUtf8, 2), "h\xC3"},       {MidB(kUtf8, -5), kUtf8.bytes()},
        {Chr(0xE9), "\xC3\xA9"},          {NthField("aXb,xc", "x", 3), "c"},
        {NthField("ab", "", 1), "ab"},    {Split(kUtf8, "")[1], "\xC3\xA9"},
        {Split(kRaw, "")[1], "\xC3"}};
    for (const auto& [got, expected] : texts) {
        EXPECT_EQ(got.bytes(), expected);
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

TEST(StringTest, Base64BreaksLinesAndSkipsForeignBytes) {
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
    for (const auto& [encoded, plain] :
         std::vector<std::pair<std::string, std::string>>{{"Zm9v\r\nYmFy", "foobar"},
                                                          {"Zm9v*Ym!Fy", "foobar"},
                                                          {"Zm8", "fo"},
                                                          {"\xFFZm9v\x80", "foo"},
                                                          {"Zg==Zm9v", "f"},
                                                          {"Zm9vY", "foo"}}) {
        EXPECT_EQ(DecodeBase64(String(encoded)).bytes(), plain) << encoded;
    }
    std::string all(256, '\0');
    std::iota(all.begin(), all.end(), '\0');
    EXPECT_TRUE(DecodeBase64(EncodeBase64(String(all), 76)).sameBytes(String(all)));
}

// The tools' Linux output, rewritten as the BSD tools print it.
// What the scanner's own tests leave out of the tools' Linux output read as the BSD one.
TEST(StringTest, ToolOutputReadsInBsdForm) {
    // Already BSD, or no entry: untouched.
    const std::string same =
        "? (1.2.3.4) at 0:1:2:3:4:5 on em0 expires in 1190 seconds [ethernet]\n"
        "arp: in 2 entries no match found.\n? (1.2.3.5) at 0:1:2:3:4:5 [ether]\n\n";
    EXPECT_EQ(
        SystemTools::neighbourLinesInBsdForm(
            String("? (1.2.3.6) at *  <from_interface>   PUB on eth0\n"
                   "? (1.2.3.7) at 0:1:2:3:4:5 [ether] on eth0\r\n" +
                   same))
            .bytes(),
        "? (1.2.3.6) at (incomplete) on eth0 PUB\n? (1.2.3.7) at 0:1:2:3:4:5 on eth0\r\n" + same);
    // Linux code, output -> BSD code: 1 means some replies only when there were any; a BSD
    // summary stays as it is.
    for (const auto& [linuxCode, output, bsdCode] :
         std::initializer_list<std::tuple<std::int64_t, const char*, std::int64_t>>{
             {1, "3 packets transmitted, 0 received", 1},
             {137, "2 packets transmitted, 1 received", 137},
             {0, "round-trip min/avg/max = 1/2/3", 0},
             {1, "packets transmitted, 99999999999999999999 received", 0}}) {
        const auto outcome = SystemTools::probeOutcome(linuxCode, output);
        EXPECT_EQ(std::pair(outcome.exitCode, outcome.output.bytes()),
                  std::pair(bsdCode, std::string(output)));
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
    EXPECT_EQ(block.StringValue(8, 0).bytes() + block.bytes(), std::string(8, '\0'));
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
