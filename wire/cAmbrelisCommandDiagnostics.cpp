// Texts that tell a person what a message is, the acknowledge, and the raw-data pair.
#include "host/StringFunctions.h"
#include "wire/cAmbrelisCommand.h"

namespace {

const host::String kIndent("       ");

host::String headerText(const host::String& header) {
    if (header == "X") {
        return "Development (X)";
    }
    if (header == "Y") {
        return "Development (Y)";
    }
    if (header == "L") {
        return "Direct log: (L)";
    }
    if (header == "E") {
        return "isf error: (E)";
    }
    if (header == "A") {
        return "shell echo of packet, ignored: ( A)";
    }
    return "UNKNOWN (" + header + ")";
}

}  // namespace

// Each text names the next flag; the readers of these reports know the odd spacing and the
// "CMM" of the first one.
host::String cAmbrelisCommand::DebugString() const {
    const host::String cr = host::Chr(13);
    const host::String flags = host::String("DoTrans:") + (fDoTransmit ? "1  CCM:" : "0  CMM:") +
                               (fCCM ? "1  AddressOnly:" : "0  AddressOnly:") +
                               (fAddressOnly ? "1  CommandOnly:" : "0  CommandOnly:") +
                               (fCommandOnly ? "1  Wireless:" : "0  Wireless:") +
                               (fWireless ? "1 Pass:" : "0  Pass:") + (fPassThrough ? "1" : "0");
    return "Packet Debug: " + TimeStamp->LongTime() + " " + TimeStamp->ShortDate() + cr + kIndent +
           "Header: " + headerText(Header) + cr + kIndent +
           "Packet Length: " + host::Str(PacketLength) +
           " RealLength: " + host::Str(host::LenB(RawCommonCommand)) + cr + kIndent +
           "Version: " + Version + cr + kIndent + "Transaction ID: " + host::Str(TransactionID) +
           cr + kIndent + "InterfaceType: " + InterfaceType + cr + kIndent +
           "UnitClass: " + UnitClass + cr + kIndent + "Code: " + Code + cr + kIndent +
           "Command: " + GetCommandCodeDescription() + cr + kIndent + "Address: " + GetHouseCode() +
           GetUnitCode() + cr + kIndent + "Level: " + host::Str(level) + kIndent + flags + cr +
           kIndent + "raw command:(" + RawCommonCommand + ")" + cr;
}

host::String cAmbrelisCommand::GetLogLine() const {
    return host::String(fStacked ? "stacked " : "") + GetCommandCodeDescription() +
           " for address " + GetHouseCode() + GetUnitCode() + (fWireless ? " (W)" : "");
}

host::Ref<cAmbrelisCommand> cAmbrelisCommand::MakeAck() const {
    auto ack = host::New<cAmbrelisCommand>();
    ack->Constructor();
    ack->isMultiPacket = true;
    ack->SetMulti("mcmd", "ACK");
    ack->SetMulti("PkID", GetMulti("PkID"));
    return ack;
}

void cAmbrelisCommand::SetRawData(const host::String& data) {
    Address1 = host::ChrB(host::LenB(data));
    Address2 = data;
}

// Read from the packet, since the reader keeps only one byte of Address2.
host::String cAmbrelisCommand::GetSendRawData() const {
    constexpr std::int64_t kRawDataPosition = 11;
    return host::Mid(RawCommonCommand, kRawDataPosition, host::AscB(Address1));
}
