#include "host/MemoryBlock.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>

#include "host/ByteOrder.h"
#include "host/Raise.h"

namespace host {

MemoryBlock::MemoryBlock(std::int64_t size) {
    SetSize(size);
}

void MemoryBlock::SetSize(std::int64_t size) {
    if (size < 0) {
        raiseOutOfBounds(size, Size() - 1);
    }
    bytes_.resize(static_cast<std::size_t>(size));
}

std::uint8_t MemoryBlock::Byte(std::int64_t offset) const {
    checkRange(offset, 1);
    return static_cast<std::uint8_t>(bytes_[static_cast<std::size_t>(offset)]);
}

void MemoryBlock::SetByte(std::int64_t offset, std::uint8_t value) {
    checkRange(offset, 1);
    bytes_[static_cast<std::size_t>(offset)] = static_cast<char>(value);
}

String MemoryBlock::StringValue(std::int64_t offset, std::int64_t length,
                                TextEncoding encoding) const {
    checkRange(offset, length);
    return String(bytes_.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(length)),
                  encoding);
}

void MemoryBlock::SetStringValue(std::int64_t offset, std::int64_t length, const String& value) {
    checkRange(offset, length);
    auto count = static_cast<std::size_t>(length);
    auto copied = std::min(count, value.size());
    char* at = bytes_.data() + offset;
    std::memcpy(at, value.data(), copied);
    std::memset(at + copied, 0, count - copied);
}

// A zero-length access at the very end touches nothing and is allowed.
void MemoryBlock::checkRange(std::int64_t offset, std::int64_t length) const {
    if (offset < 0 || length < 0 || offset > Size() || length > Size() - offset) {
        raiseOutOfBounds(offset, Size() - 1);
    }
}

template <typename T>
T MemoryBlock::load(std::int64_t offset) const {
    checkRange(offset, sizeof(T));
    const std::uint64_t bits = byteorder::load<sizeof(T)>(bytes_.data() + offset, LittleEndian);
    if constexpr (std::is_floating_point_v<T>) {
        return std::bit_cast<T>(bits);
    } else {
        return static_cast<T>(bits);
    }
}

template <typename T>
void MemoryBlock::store(std::int64_t offset, T value) {
    checkRange(offset, sizeof(T));
    std::uint64_t bits = 0;
    if constexpr (std::is_floating_point_v<T>) {
        bits = std::bit_cast<std::uint64_t>(value);
    } else {
        bits = value;
    }
    byteorder::store<sizeof(T)>(bytes_.data() + offset, bits, LittleEndian);
}

template std::uint16_t MemoryBlock::load(std::int64_t) const;
template std::uint32_t MemoryBlock::load(std::int64_t) const;
template double MemoryBlock::load(std::int64_t) const;
template void MemoryBlock::store(std::int64_t, std::uint16_t);
template void MemoryBlock::store(std::int64_t, std::uint32_t);
template void MemoryBlock::store(std::int64_t, double);

}  // namespace host
