#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#include "MultiPacketReader.h"

namespace testsupport {

// Counts what a driver sends to the controller, message by message, without keeping the
// messages: fit for floods of millions of them.
class StreamTally {
public:
    void feed(std::string_view bytes) {
        pending_.append(bytes);
        ControllerView view = readControllerStream(pending_);
        pending_ = std::move(view.rest);
        for (const std::string& message : view.inOrder) {
            count(message);
        }
    }

    std::size_t answers = 0;    // "mcmd" = "PSrp"
    std::size_t malformed = 0;  // "Tamsvale: Received malformed packet from host"
    std::size_t dropNotes = 0;  // the lines that count log lines given up
    std::size_t dropped = 0;    // the sum of those counts

private:
    void count(std::string_view message) {
        constexpr std::string_view kDropNote =
            " log lines given up while Ambrelis was not reading them";
        const std::size_t note = message.find(kDropNote);
        if (message == "mcmd=PSrp") {
            ++answers;
        } else if (note != std::string_view::npos) {
            // The number stands between "Tamsvale: " and the note.
            const std::size_t digits = message.rfind(' ', note - 1) + 1;
            ++dropNotes;
            dropped += std::strtoull(std::string(message.substr(digits, note - digits)).c_str(),
                                     nullptr, 10);
        } else if (message.ends_with("Tamsvale: Received malformed packet from host")) {
            ++malformed;
        }
    }

    std::string pending_;
};

}  // namespace testsupport
