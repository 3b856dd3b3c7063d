// The byte stream: an object is the header "Mfrq", version 0x41, byte order, two blanks; then
// records tagged V (key and value) or O (a child's name and a whole object); then the tag E.
// Strings are a 32-bit byte count and the bytes.
#include <array>
#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "host/ByteOrder.h"
#include "host/LogChannel.h"
#include "host/RuntimeException.h"
#include "host/StackCheck.h"
#include "host/StringFunctions.h"
#include "store/CXML.h"

namespace {

constexpr std::uint8_t kVersion = 0x41;
constexpr std::uint8_t kLittleEndian = 0x4C;
constexpr std::uint8_t kBigEndian = 0x42;
constexpr std::uint8_t kValueTag = 0x56;
constexpr std::uint8_t kChildTag = 0x4F;
constexpr std::uint8_t kEndTag = 0x45;

// Only the low 32 bits of a length are kept, unchecked.
void appendText(std::string& out, const host::String& text) {
    std::array<char, 4> length{};
    host::byteorder::store<4>(length.data(), static_cast<std::uint32_t>(text.size()), true);
    out.append(length.data(), length.size());
    out.append(text.bytes());
}

host::String readText(host::BinaryStream& in, host::TextEncoding encoding) {
    return in.Read(in.ReadUInt32(), encoding);
}

}  // namespace

// The lengths are written little-endian, as the header says, whatever order the stream had; the
// stream is left little-endian. The header with all values, and each child's name, go out in one
// write each.
void CXML::SaveToBinaryData(const host::Ref<host::BinaryStream>& stream) {
    host::checkStack();
    host::BinaryStream& out = *stream;
    std::string buffer(kMagic);
    buffer += static_cast<char>(kVersion);
    buffer += static_cast<char>(kLittleEndian);
    buffer += "  ";
    out.LittleEndian = true;
    for (std::int64_t i = 0; i < Values.Count(); ++i) {
        buffer += static_cast<char>(kValueTag);
        appendText(buffer, Values.Key(i).stringValue());
        appendText(buffer, Values.valueAt(i));
    }
    out.Write(host::String(std::move(buffer)));
    for (const host::Ref<CXML>& child : containers_) {
        if (!child) {
            continue;
        }
        std::string head(1, static_cast<char>(kChildTag));
        appendText(head, child->name_);
        out.Write(host::String(std::move(head)));
        child->SaveToBinaryData(stream);
    }
    out.WriteUInt8(kEndTag);
}

// Merges into what the record holds. A bad magic or a newer version raises with an empty message
// at any depth, keeping what was read; the end of the data where a tag is due ends each level
// quietly, so a cut stream gives a partial tree.
void CXML::LoadFromBinaryStream(const host::Ref<host::BinaryStream>& stream) {
    host::checkStack();
    host::BinaryStream& in = *stream;
    if (!(in.Read(4) == kMagic) || in.ReadUInt8() > kVersion) {
        throw host::RuntimeException();
    }
    switch (in.ReadUInt8()) {
        case kBigEndian:
            in.LittleEndian = false;
            break;
        case kLittleEndian:
            in.LittleEndian = true;
            break;
        default:
            host::LogChannel::write("read error unable to get byte order", 4);
    }
    in.Read(2);
    while (!in.Eof()) {
        switch (in.ReadUInt8()) {
            case kEndTag:
                return;
            case kValueTag: {
                host::String key = readText(in, host::TextEncoding::UTF8);
                Values.SetValue(key, readText(in, host::TextEncoding::UTF8));
                break;
            }
            case kChildTag: {
                auto child = host::New<CXML>();
                child->name_ = readText(in, host::TextEncoding::None);
                containers_.Append(child);
                CXMLNameIndex::treeChanged();
                child->LoadFromBinaryStream(stream);
                break;
            }
            default:
                break;  // damage between records is passed over a byte at a time
        }
    }
}

// The exact size is reserved first: growing a buffer of megabytes by doubling costs more than
// writing it.
std::int64_t CXML::storedSize() {
    host::checkStack();
    std::int64_t size = 9;  // header and end tag
    for (std::int64_t i = 0; i < Values.Count(); ++i) {
        size += 9 + static_cast<std::int64_t>(Values.Key(i).stringValue().size() +
                                              Values.valueAt(i).size());
    }
    for (const host::Ref<CXML>& child : containers_) {
        if (child) {
            size += 5 + static_cast<std::int64_t>(child->name_.size()) + child->storedSize();
        }
    }
    return size;
}

host::String CXML::SaveToString() {
    auto block = host::New<host::MemoryBlock>(0);
    block->bytes().reserve(static_cast<std::size_t>(storedSize()));
    auto stream = host::New<host::BinaryStream>(block);
    SaveToBinaryData(stream);
    stream->Close();
    return host::String(std::move(block->bytes()));
}

// Refuses, silently and without a change, what is empty or does not begin with the magic.
void CXML::loadFromString(const host::String& data) {
    if (data.empty() || !(host::Left(data, 4) == kMagic)) {
        return;
    }
    auto stream = host::New<host::BinaryStream>(data);
    LoadFromBinaryStream(stream);
    stream->Close();
}

host::Ref<host::MemoryBlock> CXML::NewBinaryBlock(std::int64_t size,
                                                  const host::String& byteOrder) {
    host::Ref<host::MemoryBlock> block;
    try {
        block = host::New<host::MemoryBlock>(size);
    } catch (const std::exception&) {
        // A block that cannot be made stays nil, and its first use below raises.
    }
    block->LittleEndian = !(byteOrder == "B");
    return block;
}

void CXML::MergeArrays(host::Array<host::Ref<host::MemoryBlock>>& target,
                       const host::Array<host::Ref<host::MemoryBlock>>& source) {
    for (const host::Ref<host::MemoryBlock>& block : source) {
        target.Append(block);
    }
}

std::int64_t CXML::SizeOfArray(const host::Array<host::Ref<host::MemoryBlock>>& blocks) {
    std::int64_t total = 0;
    for (const host::Ref<host::MemoryBlock>& block : blocks) {
        total += block->Size();
    }
    return total;
}
