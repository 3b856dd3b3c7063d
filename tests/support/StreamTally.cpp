#include "StreamTally.h"

#include <cstdlib>

#include "MultiPacketReader.h"

namespace testsupport {

namespace {

const std::string kAnswer = multiPacket({{"mcmd", "PSrp"}});
constexpr std::string_view kDropNote = " log lines given up while Ambrelis was not reading them";

}  // namespace

void StreamTally::feed(std::string_view bytes) {
    pending_.append(bytes);
    std::size_t at = 0;
    if (!greeted_) {
        at = pending_.find('\r');
        if (at == std::string::npos) {
            return;
        }
        greeted_ = true;
        ++at;
    }
    // Each message is "J" and its 16-bit little-endian length.
    while (pending_.size() - at >= 3) {
        const std::size_t length =
            static_cast<unsigned char>(pending_[at + 1]) |
            static_cast<std::size_t>(static_cast<unsigned char>(pending_[at + 2])) << 8U;
        if (length < 4 || pending_.size() - at < length) {
            break;
        }
        count(std::string_view(pending_).substr(at, length));
        at += length;
    }
    pending_.erase(0, at);
}

void StreamTally::count(std::string_view message) {
    if (message == kAnswer) {
        ++answers;
        return;
    }
    const std::size_t note = message.find(kDropNote);
    if (note != std::string_view::npos) {
        // The number stands between "Tamsvale: " and the note.
        const std::size_t digits = message.rfind(' ', note - 1) + 1;
        ++dropNotes;
        dropped +=
            std::strtoull(std::string(message.substr(digits, note - digits)).c_str(), nullptr, 10);
    } else if (message.ends_with("Tamsvale: Received malformed packet from host")) {
        ++malformed;
    }
}

}  // namespace testsupport
