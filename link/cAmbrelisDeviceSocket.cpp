#include "link/cAmbrelisDeviceSocket.h"

#include <limits>
#include <utility>

#include "core/Globals.h"
#include "host/ByteOrder.h"
#include "host/Print.h"
#include "host/StringFunctions.h"
#include "link/CommandSupportModule.h"
#include "wire/cAmbrelisCommand.h"

namespace {

constexpr unsigned char kMultiPacketLead = 'J';
constexpr std::size_t kMultiPacketMinimum = 5;

// "j" passes too: the lead byte is compared without case.
bool isMultiPacketLead(char c) {
    return (static_cast<unsigned char>(c) | 0x20) == (kMultiPacketLead | 0x20);
}

// The message at the front of `bytes` (not empty) as the cutter takes it.
struct Frame {
    bool multiPacket;
    std::size_t length;  // as its length field says
};

Frame frameAt(std::string_view bytes) {
    if (bytes.size() >= kMultiPacketMinimum && isMultiPacketLead(bytes[0])) {
        // The length is little-endian whatever the flag byte says.
        return {true, host::byteorder::load<2>(bytes.data() + 1, true)};
    }
    // A common message. With one byte there is no length byte, and the length reads as 0.
    return {false, bytes.size() > 1 ? static_cast<unsigned char>(bytes[1]) : std::size_t{0}};
}

// What `bytes` lacks to end where a message ends, walking it as the cutter will cut it; 0 also
// when nothing would help, at a length of 0, which the cutter never gets past.
std::size_t shortOfWholeMessages(std::string_view bytes) {
    while (!bytes.empty()) {
        // Until the length is known, as many bytes as it takes to know it.
        if (isMultiPacketLead(bytes[0]) && bytes.size() < kMultiPacketMinimum) {
            return kMultiPacketMinimum - bytes.size();
        }
        if (bytes.size() == 1) {
            return 1;
        }
        const Frame frame = frameAt(bytes);
        if (frame.length == 0) {
            return 0;
        }
        if (frame.length > bytes.size()) {
            return frame.length - bytes.size();
        }
        bytes.remove_prefix(frame.length);
    }
    return 0;
}

}  // namespace

void cAmbrelisDeviceSocket::Event_Connected() {
    Write("ard:" + ConnectionID + host::Chr(13));
    Globals::writelog("Tamsvale ISF connecting...", 2);
}

void cAmbrelisDeviceSocket::Event_Error(const host::RuntimeException& /*err*/) {
    host::Print(host::Chr(13) + "Ambrelis Pipe Error" + host::Chr(13));
    Globals::DoQuit = true;
}

void cAmbrelisDeviceSocket::Event_DataAvailable() {
    appendToBuffer(ReadAll());
    cutStream(std::numeric_limits<std::uint64_t>::max());
}

void cAmbrelisDeviceSocket::SendCommand(const host::Ref<cAmbrelisCommand>& cmd) {
    Write(cmd->GetRawCommand());
}

void cAmbrelisDeviceSocket::SendLogLine(const host::Ref<cAmbrelisCommand>& line) {
    if (BytesLeftToSend() > kLogCeiling) {
        // A handler that never returns to the pump learns only here that the controller reads.
        Flush();
        if (BytesLeftToSend() > kLogCeiling) {
            ++droppedLines_;
            return;
        }
    }
    if (BytesLeftToSend() < kLowWater) {
        reportDroppedLines();
    }
    SendCommand(line);
}

void cAmbrelisDeviceSocket::Event_SendComplete() {
    reportDroppedLines();
}

void cAmbrelisDeviceSocket::reportDroppedLines() {
    if (droppedLines_ > 0) {
        const host::String count = host::Str(std::exchange(droppedLines_, 0));
        Globals::writelog(
            "Tamsvale: " + count + " log lines given up while Ambrelis was not reading them", 4);
    }
}

std::size_t cAmbrelisDeviceSocket::bytesShortOfWholeMessage(std::string_view received) const {
    if (buffer_.empty()) {
        return shortOfWholeMessages(received);
    }
    std::string joined(buffer_.view());
    joined += received;
    return shortOfWholeMessages(joined);
}

host::String cAmbrelisDeviceSocket::Buffer() const {
    return host::String(std::string(buffer_.view()));
}

void cAmbrelisDeviceSocket::appendToBuffer(host::String bytes) {
    buffer_.append(std::move(bytes.bytes()));
}

bool cAmbrelisDeviceSocket::cutStream(std::uint64_t maxPasses) {
    for (std::uint64_t pass = 0; pass < maxPasses; ++pass) {
        const std::size_t size = buffer_.size();
        if (size == 0) {
            return true;
        }
        const Frame next = frameAt(buffer_.view());
        if (next.length > size && !next.multiPacket) {
            continue;  // incomplete: no return, the same bytes are tested again
        }
        if (next.length > size) {
            Globals::writelog(
                "bufflength is " + host::Str(static_cast<std::int64_t>(size)) +
                    " packet length is: " + host::Str(static_cast<std::int64_t>(next.length)),
                2);
            return true;
        }
        const host::String frame(buffer_.take(next.length));
        auto cmd = host::New<cAmbrelisCommand>();
        cmd->Constructor();
        if (next.multiPacket ? cmd->initFromMultiPacket(frame)
                             : cmd->InitFromCommonMessage(frame)) {
            CommandSupportModule::HandleIncomingCommand(cmd);
        } else if (next.multiPacket) {
            Globals::writelog("unable to parse multipacket", 1);
            return true;
        } else {
            Globals::writelog("Tamsvale: Received malformed packet from host", 4);
        }
    }
    return false;
}
