#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace testsupport {

// Counts what a driver sends to the controller, message by message, without keeping the
// messages: fit for floods of millions of them.
class StreamTally {
public:
    void feed(std::string_view bytes);

    std::size_t answers = 0;    // "mcmd" = "PSrp"
    std::size_t malformed = 0;  // "Tamsvale: Received malformed packet from host"
    std::size_t dropNotes = 0;  // the lines that count log lines given up
    std::size_t dropped = 0;    // the sum of those counts

private:
    void count(std::string_view message);

    std::string pending_;
};

}  // namespace testsupport
