#pragma once

#include <cstdint>
#include <string>

#include "host/String.h"
#include "host/TextEncoding.h"

namespace host {

// A block of bytes. Multi-byte values follow the block's LittleEndian, which is true when new.
// Any access outside the block raises OutOfBoundsException.
class MemoryBlock {
public:
    explicit MemoryBlock(std::int64_t size = 0);

    std::int64_t Size() const { return static_cast<std::int64_t>(bytes_.size()); }
    // Grows with zero bytes or cuts.
    void SetSize(std::int64_t size);

    bool LittleEndian = true;

    std::uint8_t Byte(std::int64_t offset) const;
    void SetByte(std::int64_t offset, std::uint8_t value);
    std::uint16_t UInt16Value(std::int64_t offset) const { return load<std::uint16_t>(offset); }
    void SetUInt16Value(std::int64_t offset, std::uint16_t value) { store(offset, value); }
    std::uint32_t UInt32Value(std::int64_t offset) const { return load<std::uint32_t>(offset); }
    void SetUInt32Value(std::int64_t offset, std::uint32_t value) { store(offset, value); }
    double DoubleValue(std::int64_t offset) const { return load<double>(offset); }
    void SetDoubleValue(std::int64_t offset, double value) { store(offset, value); }
    String StringValue(std::int64_t offset, std::int64_t length,
                       TextEncoding encoding = TextEncoding::None) const;
    // Writes the first `length` bytes of value at offset; a shorter value is padded with zeros.
    void SetStringValue(std::int64_t offset, std::int64_t length, const String& value);

    // The whole block as an untagged string.
    String content() const { return String(bytes_); }
    // Direct access for BinaryStream, which grows the block as it writes.
    std::string& bytes() { return bytes_; }
    const std::string& bytes() const { return bytes_; }

private:
    void checkRange(std::int64_t offset, std::int64_t length) const;

    // A value of type T as sizeof(T) bytes in the block's order; a double travels as the bits of
    // its IEEE 754 form. Defined beside checkRange, so that no caller inlines an access the
    // compiler cannot see is checked.
    template <typename T>
    T load(std::int64_t offset) const;
    template <typename T>
    void store(std::int64_t offset, T value);

    std::string bytes_;
};

}  // namespace host
