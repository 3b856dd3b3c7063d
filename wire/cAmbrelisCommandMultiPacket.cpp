// The multi-packet: "J", a 16-bit total length, a flag byte, then pairs of a four-byte key, a
// 16-bit value length and the value. Lengths wider than 16 bits keep their low bits.
#include <algorithm>
#include <array>
#include <string_view>

#include "host/ByteOrder.h"
#include "wire/cAmbrelisCommand.h"

namespace {

constexpr std::size_t kKeySize = 4;
constexpr std::size_t kLengthSize = 2;
constexpr std::size_t kHeaderSize = 4;
constexpr std::size_t kFlagsAt = 3;
constexpr unsigned char kLittleEndianFlag = 0x80;

// Right-aligned in four bytes: a short key gets leading spaces, a long one keeps its last four.
host::String padKey(std::string_view key) {
    std::string padded(kKeySize, ' ');
    const std::size_t kept = std::min(key.size(), kKeySize);
    padded.replace(kKeySize - kept, kept, key.substr(key.size() - kept));
    return host::String(std::move(padded));
}

void appendUInt16(std::string& out, std::size_t value) {
    std::array<char, kLengthSize> bytes{};
    host::byteorder::store<kLengthSize>(bytes.data(), value, true);
    out.append(bytes.data(), bytes.size());
}

std::size_t readLength(std::string_view bytes, std::size_t at, bool littleEndian) {
    return at + kLengthSize <= bytes.size()
               ? host::byteorder::load<kLengthSize>(bytes.data() + at, littleEndian)
               : 0;
}

// A first walk over the pairs, so the table is sized once.
std::size_t countPairs(std::string_view bytes, bool littleEndian) {
    std::size_t count = 0;
    for (std::size_t at = kHeaderSize; at < bytes.size(); ++count) {
        at += kKeySize + kLengthSize + readLength(bytes, at + kKeySize, littleEndian);
    }
    return count;
}

constexpr std::size_t kKeysOfMost = 4;

}  // namespace

void cAmbrelisCommand::SetMulti(const host::String& key, const host::String& value) {
    isMultiPacket = true;
    if (!MultiDict) {
        MultiDict = host::New<host::Dictionary<host::String>>();
        // Room for what most messages carry: "mcmd" and up to three more.
        MultiDict->reserve(kKeysOfMost);
    }
    // Stored as given: only the getter and the writer pad.
    MultiDict->SetValue(key, value);
}

host::String cAmbrelisCommand::GetMulti(const host::String& key) const {
    const host::String* value = MultiDict->lookup(padKey(key.view()));
    return value != nullptr ? *value : host::String();
}

host::Array<host::String> cAmbrelisCommand::GetKeys() const {
    host::Array<host::String> keys;
    const auto& dict = *MultiDict;
    for (std::int64_t i = 0; i < dict.Count(); ++i) {
        keys.Append(dict.Key(i).stringValue());
    }
    return keys;
}

// Always little-endian with the flag 0x80, whatever order a received message came in.
host::String cAmbrelisCommand::GetRawMultipacket() {
    if (!MultiDict) {
        return writeCommonForm();
    }
    const auto& dict = *MultiDict;
    std::size_t total = kHeaderSize;
    for (std::int64_t i = 0; i < dict.Count(); ++i) {
        total += kKeySize + kLengthSize + dict.valueAt(i).size();
    }
    std::string packet;
    packet.reserve(total);
    packet += 'J';
    appendUInt16(packet, total);
    packet += static_cast<char>(kLittleEndianFlag);
    for (std::int64_t i = 0; i < dict.Count(); ++i) {
        const std::string& value = dict.valueAt(i).bytes();
        packet += padKey(dict.Key(i).stringValue().view()).bytes();
        appendUInt16(packet, value.size());
        packet += value;
    }
    return host::String(std::move(packet));
}

// Parses to the end of what was given, without looking at the lead byte or the length field.
// A read that runs out takes what is left and a length that runs out reads 0, so the loop
// always ends at the end of the packet.
bool cAmbrelisCommand::initFromMultiPacket(const host::String& packet) {
    isMultiPacket = true;
    RawCommonCommand = packet;
    const std::string_view bytes = packet.view();
    MultiFlags = bytes.size() > kFlagsAt ? packet.byteAt(kFlagsAt) : 0;
    LittleEndian = (MultiFlags & kLittleEndianFlag) > 0;
    MultiDict = host::New<host::Dictionary<host::String>>();

    const auto take = [&bytes](std::size_t& at, std::size_t count) {
        std::string_view piece = bytes.substr(std::min(at, bytes.size()), count);
        at += count;
        return piece;
    };
    MultiDict->reserve(countPairs(bytes, LittleEndian));
    for (std::size_t at = kHeaderSize; at < bytes.size();) {
        const std::string_view key = take(at, kKeySize);
        const std::size_t length = readLength(bytes, at, LittleEndian);
        at += kLengthSize;
        MultiDict->SetValue(host::String(std::string(key)),
                            host::String(std::string(take(at, length))));
    }
    return true;
}
