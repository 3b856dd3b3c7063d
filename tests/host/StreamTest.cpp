#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <numeric>

#include "ProcessStats.h"
#include "host/BinaryStream.h"
#include "host/IOException.h"
#include "host/OutOfBoundsException.h"
#include "host/UniqueFd.h"

namespace host {
namespace {

using namespace std::string_literals;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

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
        SCOPED_TRACE("kind " + std::to_string(static_cast<int>(kind)));
        for (const auto& [start, read, value, position] : cases) {
            auto stream = make(kind, "abcd");
            stream->SetPosition(start);
            auto got = read(*stream);
            EXPECT_EQ(std::tuple(got, stream->Position(), stream->Eof()),
                      std::tuple(value, position, position >= 4))
                << "start " << start;
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
    // Started with standard input closed, as daemons are, a file opens as descriptor 0.
    {
        const UniqueFd in(::dup(0));
        ::close(0);
        const bool opened = BinaryStream::Open(name, false) != nullptr;
        ::dup2(in.get(), 0);
        EXPECT_TRUE(opened);
    }
    EXPECT_EQ(testsupport::openDescriptors(), descriptors);  // every file was closed
    std::remove(name.bytes().c_str());
}

}  // namespace
}  // namespace host
