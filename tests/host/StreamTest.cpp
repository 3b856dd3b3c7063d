#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <tuple>
#include <utility>

#include "host/BinaryStream.h"
#include "host/IOException.h"
#include "host/MemoryBlock.h"
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
    void SetUp() override {
        std::string pattern = ::testing::TempDir() + "streamtest.XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    enum class Kind { Text, Block, File, ReadOnlyFile };
    static constexpr Kind kAllKinds[] = {Kind::Text, Kind::Block, Kind::File, Kind::ReadOnlyFile};

    // A stream of the kind over `bytes`, positioned at 0. A file goes through Create, the
    // destructor's flush and a reopen.
    auto make(Kind kind, const std::string& bytes) {
        String name(dir_ + "/" + std::to_string(++files_));
        BinaryStream::Create(name)->Write(String("stale bytes, longer than any content"));
        BinaryStream::Create(name)->Write(String(bytes));  // must truncate the stale bytes
        auto block = New<MemoryBlock>(0);
        block->bytes() = bytes;
        return kind == Kind::Text    ? New<BinaryStream>(String(bytes))
               : kind == Kind::Block ? New<BinaryStream>(block)
                                     : BinaryStream::Open(name, kind == Kind::File);
    }

    std::string dir_;
    int files_ = 0;
};

TEST(StreamByteOrderTest, NumbersFollowTheByteOrderOnBothMemoryKinds) {
    // 0xDEADBEEF from the stream, then 0x1234 from the block.
    const std::pair<bool, std::string> cases[] = {
        {false, "\xDE\xAD\xBE\xEF\x12\x34"},
        {true, "\xEF\xBE\xAD\xDE\x34\x12"},
    };
    for (const auto& [little, bytes] : cases) {
        SCOPED_TRACE(little);
        auto block = New<MemoryBlock>(0);
        BinaryStream writer(block);
        writer.LittleEndian = little;
        writer.WriteUInt32(0xDEADBEEF);
        block->LittleEndian = little;
        block->SetSize(6);
        block->SetUInt16Value(4, 0x1234);
        EXPECT_EQ(block->bytes(), bytes);
        EXPECT_EQ(block->UInt32Value(0), 0xDEADBEEFu);

        BinaryStream overBlock(block);
        BinaryStream overText(block->content());
        for (BinaryStream* reader : {&overBlock, &overText}) {
            reader->LittleEndian = little;
            EXPECT_EQ(reader->ReadUInt32(), 0xDEADBEEFu);
            EXPECT_EQ(reader->ReadUInt16(), 0x1234);
        }
    }
    EXPECT_TRUE(MemoryBlock().LittleEndian);
    EXPECT_FALSE(BinaryStream(String()).LittleEndian);
}

TEST_F(StreamTest, ReadingPastTheEndStopsAtTheData) {
    // Start, read, value read, position after.
    using Read = std::function<std::uint64_t(BinaryStream&)>;
    const std::tuple<std::int64_t, Read, std::uint64_t, std::int64_t> cases[] = {
        {1, [](BinaryStream& s) { return s.Read(10).size(); }, 3, 4},
        {-7, [](BinaryStream& s) { return s.Read(2).size(); }, 2, 2},
        {1, [](BinaryStream& s) { return s.Read(-5).size(); }, 0, 1},
        {2, [](BinaryStream& s) { return s.ReadUInt16(); }, 0x6364, 4},
        {1, [](BinaryStream& s) { return s.ReadUInt32(); }, 0, 4},
        {kMax, [](BinaryStream& s) { return s.ReadUInt32(); }, 0, kMax},
        {kMax, [](BinaryStream& s) { return s.Read(kMax).size(); }, 0, kMax},
    };
    for (Kind kind : kAllKinds) {
        for (const auto& [start, read, value, position] : cases) {
            auto stream = make(kind, "abcd");
            stream->SetPosition(start);
            auto got = read(*stream);
            EXPECT_EQ(std::tuple(got, stream->Position(), stream->Eof()),
                      std::tuple(value, position, position >= 4))
                << "start " << start << ", kind " << static_cast<int>(kind);
        }
    }
}

TEST_F(StreamTest, WritesOverwriteGrowAndFillGapsWithZeros) {
    const std::pair<std::int64_t, const char*> writes[] = {{2, "XY"}, {5, "123"}, {10, "AB"}};
    for (Kind kind : {Kind::Block, Kind::File}) {
        SCOPED_TRACE(static_cast<int>(kind));
        auto stream = make(kind, "abcdef");
        // Inside, across the end, past the end.
        for (const auto& [at, data] : writes) {
            stream->SetPosition(at);
            stream->Write(String(data));
        }
        stream->SetPosition(0);
        EXPECT_EQ(stream->Read(kMax).bytes(), "abXYe123\0\0AB"s);
    }
}

TEST_F(StreamTest, ReadOnlyAndClosedStreamsRaise) {
    for (Kind kind : kAllKinds) {
        SCOPED_TRACE(static_cast<int>(kind));
        auto stream = make(kind, "data");
        if (kind == Kind::Text || kind == Kind::ReadOnlyFile) {
            EXPECT_THROW(stream->WriteUInt32(1), host::IOException);
            EXPECT_EQ(stream->Read(kMax).bytes(), "data");
        }
        stream->Close();
        EXPECT_THROW(stream->Read(1), host::IOException);
        EXPECT_THROW(stream->Write(String("x")), host::IOException);
        EXPECT_THROW(stream->SetPosition(0), host::IOException);
    }
}

TEST_F(StreamTest, LargeBufferedWritesReachTheFileInOrder) {
    const std::string name = dir_ + "/big";
    auto stream = BinaryStream::Create(String(name));
    std::string expected;
    for (std::uint32_t i = 0; i < 50'000; ++i) {
        stream->WriteUInt32(i);
        stream->WriteUInt8(static_cast<std::uint8_t>(i));
        expected += {static_cast<char>(i >> 24), static_cast<char>(i >> 16),
                     static_cast<char>(i >> 8), static_cast<char>(i), static_cast<char>(i)};
    }
    stream = nullptr;  // the destructor flushes the rest
    EXPECT_EQ(BinaryStream::Open(String(name))->Read(kMax).bytes(), expected);
}

TEST_F(StreamTest, FailedFlushRaisesWithErrnoAndStillReleasesTheDescriptor) {
    int before = testsupport::openDescriptors();
    auto stream = BinaryStream::Create(String("/dev/full"));
    stream->Write(String("x"));
    try {
        stream->Close();
        ADD_FAILURE() << "no exception";
    } catch (const host::IOException& err) {
        EXPECT_EQ(err.ErrorNumber, ENOSPC);
    }
    EXPECT_EQ(testsupport::openDescriptors(), before);
    EXPECT_NO_THROW(stream->Close());

    // The destructor swallows the same failure.
    BinaryStream::Create(String("/dev/full"))->Write(String("x"));
    EXPECT_EQ(testsupport::openDescriptors(), before);
}

TEST(StreamMemoryBlockTest, AccessOutsideTheBlockRaises) {
    const std::function<void(MemoryBlock&)> accesses[] = {
        [](MemoryBlock& m) { m.Byte(-1); },          [](MemoryBlock& m) { m.SetUInt32Value(5, 0); },
        [](MemoryBlock& m) { m.UInt32Value(kMax); }, [](MemoryBlock& m) { m.StringValue(0, -1); },
        [](MemoryBlock& m) { m.SetSize(-1); },
    };
    for (std::size_t i = 0; i < std::size(accesses); ++i) {
        MemoryBlock block(8);
        EXPECT_THROW(accesses[i](block), host::OutOfBoundsException) << i;
        EXPECT_EQ(block.bytes(), std::string(8, '\0')) << i;
    }
    // The edges themselves are inside; strings are cut or padded, growth is zeroed.
    MemoryBlock block(6);
    EXPECT_EQ(block.StringValue(6, 0).size(), 0u);
    block.SetStringValue(0, 6, String("abcdefgh"));
    block.SetStringValue(1, 4, String("xy"));
    block.SetSize(8);
    EXPECT_EQ(block.bytes(), "axy\0\0f\0\0"s);
}

}  // namespace
