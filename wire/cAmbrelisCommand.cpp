#include "wire/cAmbrelisCommand.h"

#include <string>

#include "host/ByteOrder.h"
#include "host/StringFunctions.h"

namespace {

// Lengths are 16 bits wide; longer counts keep their low bits.
void appendUInt16LE(std::string& out, std::size_t value) {
    char bytes[2];
    host::byteorder::store<2>(bytes, value, true);
    out.append(bytes, 2);
}

}  // namespace

bool cAmbrelisCommand::InitFromCommonMessage(const host::String& packet) {
    RawCommonCommand = packet;
    Header = host::LeftB(packet, 1);
    return Header == "X" || Header == "Y" || Header == "L" || Header == "M" || Header == "N";
}

bool cAmbrelisCommand::initFromMultiPacket(const host::String& packet) {
    isMultiPacket = true;
    RawCommonCommand = packet;
    return true;
}

void cAmbrelisCommand::SetMulti(const host::String& key, const host::String& value) {
    isMultiPacket = true;
    if (!MultiDict) {
        MultiDict = host::New<host::Dictionary<host::String>>();
    }
    MultiDict->SetValue(key, value);
}

host::String cAmbrelisCommand::GetRawCommand() {
    std::string packet = "J";
    appendUInt16LE(packet, 0);
    packet += static_cast<char>(0x80);
    if (MultiDict) {
        for (std::int64_t i = 0; i < MultiDict->Count(); ++i) {
            std::string key = "    " + MultiDict->Key(i).stringValue().bytes();
            packet += key.substr(key.size() - 4);
            const std::string& value = MultiDict->valueAt(i).bytes();
            appendUInt16LE(packet, value.size());
            packet += value;
        }
    }
    host::byteorder::store<2>(&packet[1], packet.size(), true);
    return host::String(std::move(packet));
}
