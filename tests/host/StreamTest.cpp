#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <limits>
#include <numeric>
#include <string>
#include <tuple>

#include "host/BinaryStream.h"
#include "host/IOException.h"
#include "host/OutOfBoundsException.h"
#include "tests/support/ProcessStats.h"

using host::BinaryStream;
using host::MemoryBlock;
using host::New;
using host::String;
using namespace std::string_literals;

namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

class StreamTest : public ::testing::Test {
protected:
    // Every file a test opened is closed by its end.
    void TearDown() override { EXPECT_EQ(testsupport::openDescriptors(), descriptors_); }
    ~StreamTest() override { std::filesystem::remove_all(dir_); }

    enum class Kind { Text, Block, File, ReadOnlyFile };

    // A stream of the kind over `bytes`, positioned at 0. A file goes through Create, the
    // destructor's flush and a reopen.
    auto make(Kind kind, const std::string& bytes) {
        std::filesystem::create_directories(dir_);
        String name(dir_ + "/" + std::to_string(++files_));
        BinaryStream::Create(name)->Write(String("stale bytes, longer than any content"));
        BinaryStream::Create(name)->Write(String(bytes));  // must truncate the stale bytes
        auto block = New<MemoryBlock>(0);
        block->bytes() = bytes;
        return kind == Kind::Text    ? New<BinaryStream>(String(bytes))
               : kind == Kind::Block ? New<BinaryStream>(block)
                                     : BinaryStream::Open(name, kind == Kind::File);
    }

    const int descriptors_ = testsupport::openDescriptors();
    const std::string dir_ = ::testing::TempDir() + "streamtest." + std::to_string(::getpid());
    int files_ = 0;
};

TEST(StreamMemoryTest, NumbersFollowTheByteOrderAndBlockAccessIsChecked) {
    for (auto [little, bytes] : {std::pair{false, "\xDE\xAD\xBE\xEF\x12\x34"s},
                                 std::pair{true, "\xEF\xBE\xAD\xDE\x34\x12"s}}) {
        SCOPED_TRACE(little);
        auto block = New<MemoryBlock>(0);
        BinaryStream writer(block);
        writer.LittleEndian = block->LittleEndian = little;
        writer.WriteUInt32(0xDEADBEEF);
        writer.WriteUInt16(0x1234);
        EXPECT_EQ(block->bytes(), bytes);
        EXPECT_EQ(block->UInt32Value(0), 0xDEADBEEFu);
        BinaryStream reader(block->content());
        reader.LittleEndian = little;
        EXPECT_EQ(reader.ReadUInt32(), 0xDEADBEEFu);
        EXPECT_EQ(reader.ReadUInt16(), 0x1234);
    }
    EXPECT_TRUE(MemoryBlock().LittleEndian);
    EXPECT_FALSE(BinaryStream(String()).LittleEndian);

    MemoryBlock block(8);
    EXPECT_THROW(block.Byte(-1), host::OutOfBoundsException);
    EXPECT_THROW(block.UInt32Value(kMax), host::OutOfBoundsException);
    EXPECT_THROW(block.SetSize(-1), host::OutOfBoundsException);
    EXPECT_EQ(block.bytes(), std::string(8, '\0'));  // nothing was touched
}

TEST_F(StreamTest, ReadingPastTheEndStopsAtTheDataAndMisuseRaises) {
    // Start, read, value read, position after.
    using Read = std::function<std::uint64_t(BinaryStream&)>;
    const std::tuple<std::int64_t, Read, std::uint64_t, std::int64_t> cases[] = {
        {1, [](BinaryStream& s) { return s.Read(10).size(); }, 3, 4},
        {-7, [](BinaryStream& s) { return s.Read(2).size(); }, 2, 2},
        {2, [](BinaryStream& s) { return s.ReadUInt16(); }, 0x6364, 4},
        {1, [](BinaryStream& s) { return s.ReadUInt32(); }, 0, 4},
        {kMax, [](BinaryStream& s) { return s.ReadUInt32(); }, 0, kMax},
        {kMax, [](BinaryStream& s) { return s.Read(kMax).size(); }, 0, kMax},
    };
    for (Kind kind : {Kind::Text, Kind::Block, Kind::File, Kind::ReadOnlyFile}) {
        for (const auto& [start, read, value, position] : cases) {
            auto stream = make(kind, "abcd");
            stream->SetPosition(start);
            auto got = read(*stream);
            EXPECT_EQ(std::tuple(got, stream->Position(), stream->Eof()),
                      std::tuple(value, position, position >= 4))
                << "start " << start << ", kind " << static_cast<int>(kind);
        }
        auto stream = make(kind, "data");
        if (kind == Kind::Text || kind == Kind::ReadOnlyFile) {
            EXPECT_THROW(stream->WriteUInt32(1), host::IOException);
        }
        stream->Close();
        EXPECT_THROW(stream->Read(1), host::IOException);
        EXPECT_THROW(stream->Write(String("x")), host::IOException);
    }
}

TEST_F(StreamTest, WritesOverwriteGrowFillGapsAndFlushInOrder) {
    // Inside, across the end, past the end, then twice more than a file buffers.
    std::string big(100'000, '\0');
    std::iota(big.begin(), big.end(), '\0');
    const std::pair<std::int64_t, std::string> writes[] = {
        {2, "XY"}, {5, "123"}, {10, "AB"}, {12, big}, {12 + 100'000, big}};
    for (Kind kind : {Kind::Block, Kind::File}) {
        SCOPED_TRACE(static_cast<int>(kind));
        auto stream = make(kind, "abcdef");
        for (const auto& [at, data] : writes) {
            stream->SetPosition(at);
            stream->Write(String(data));
        }
        stream->SetPosition(0);
        EXPECT_TRUE(stream->Read(kMax).bytes() == "abXYe123\0\0AB"s + big + big);
    }
}

TEST_F(StreamTest, FailedFlushRaisesOnCloseButNotFromTheDestructor) {
    auto full = BinaryStream::Create(String("/dev/full"));
    full->Write(String("x"));
    EXPECT_THROW(full->Close(), host::IOException);
    BinaryStream::Create(String("/dev/full"))->Write(String("x"));  // the destructor swallows it
}

}  // namespace
