#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "LoopbackServer.h"

namespace testsupport {

// What a driver running as its own process has sent to the controller, taken in whole messages
// across calls.
class ReceivedMessages {
public:
    explicit ReceivedMessages(LoopbackServer& server) : server_(server) {}

    // Waits until `count` messages have come since the last call or the limit has passed, and
    // returns those that came, each as "key=value ..." in wire order.
    std::vector<std::string> take(std::size_t count, std::chrono::milliseconds limit);
    const std::string& greeting() const { return greeting_; }

private:
    LoopbackServer& server_;
    std::string greeting_;
    std::string pending_;  // the start of a message not yet whole
};

}  // namespace testsupport
