#pragma once

#include <cstdint>
#include <string>

#include "host/MemoryBlock.h"
#include "host/Ref.h"
#include "host/String.h"
#include "host/TextEncoding.h"

namespace host {

// A byte stream over a string (read only), over a MemoryBlock that it grows as it writes, or
// over a file. Multi-byte reads and writes follow LittleEndian, false (big-endian) when new.
//
// Reading past the end never touches memory outside the data: Read gives what there is, a
// number read that runs out gives 0, and the position then stands at the end, so Eof() is true.
// A failed read or write of a file raises IOException with errno in ErrorNumber; so does any use
// of a closed stream or a write to a string stream.
class BinaryStream {
public:
    explicit BinaryStream(const String& data);
    explicit BinaryStream(Ref<MemoryBlock> block);
    ~BinaryStream();
    BinaryStream(const BinaryStream&) = delete;
    BinaryStream& operator=(const BinaryStream&) = delete;

    // Makes the file, overwriting it, for writing and reading; nil on failure.
    static Ref<BinaryStream> Create(const String& path);
    // Opens an existing file, for reading unless readWrite; nil on failure.
    static Ref<BinaryStream> Open(const String& path, bool readWrite = false);

    bool LittleEndian = false;

    String Read(std::int64_t count, TextEncoding encoding = TextEncoding::None);
    std::uint8_t ReadUInt8();
    std::uint16_t ReadUInt16();
    std::uint32_t ReadUInt32();
    void Write(const String& data);
    void WriteUInt8(std::uint8_t value);
    void WriteUInt16(std::uint16_t value);
    void WriteUInt32(std::uint32_t value);

    // The host's EOF; spelt so because EOF is a C macro.
    bool Eof() const;
    std::int64_t Length() const;
    std::int64_t Position() const { return position_; }
    // Beyond the end is allowed: a write there fills the gap with zeros.
    void SetPosition(std::int64_t position);
    // Flushes a file and releases it; a second Close does nothing.
    void Close();

private:
    enum class Kind { Text, Block, File };
    BinaryStream(int fd, std::int64_t length, bool writable);
    // Nil when open fails or the path names a folder.
    static Ref<BinaryStream> openFile(const String& path, int flags);

    void requireOpen() const;
    const std::string& memory() const { return kind_ == Kind::Text ? text_ : block_->bytes(); }
    // At most `count` bytes from the position on; fewer at the end.
    std::string readBytes(std::int64_t count);
    // pread from the position until `size` bytes or the end of the file; returns the count read.
    std::size_t readFile(char* into, std::size_t size) const;
    void writeBytes(const char* data, std::size_t size);
    template <int Width>
    std::uint64_t readNumber();
    template <int Width>
    void writeNumber(std::uint64_t value);
    void flushFile();

    Kind kind_;
    bool closed_ = false;
    bool writable_ = true;
    std::int64_t position_ = 0;
    std::string text_;             // Kind::Text
    Ref<MemoryBlock> block_;       // Kind::Block, never nil
    int fd_ = -1;                  // Kind::File
    std::int64_t fileLength_ = 0;  // Kind::File, including buffered bytes
    // Kind::File: writes not yet in the file, starting at pendingAt_. While it holds bytes the
    // position stands right after them, so a write only ever appends to it.
    std::string pending_;
    std::int64_t pendingAt_ = 0;
};

}  // namespace host
