#include "StreamTally.h"

#include <cstdlib>

#include "MultiPacketReader.h"

namespace testsupport {

void StreamTally::feed(std::string_view bytes) {
    pending_.append(bytes);
    ControllerView view = readControllerStream(pending_);
    pending_ = std::move(view.rest);
    for (const std::string& message : view.inOrder) {
        count(message);
    }
}

void StreamTally::count(std::string_view message) {
    constexpr std::string_view kDropNote =
        " log lines given up while Ambrelis was not reading them";
    if (message == "mcmd=PSrp") {
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
