#pragma once

#include <cstdint>
#include <functional>

#include "host/String.h"

namespace host {

// Lets the lower layers log without knowing the driver: the driver installs its one log call
// here, and until it does a line goes to standard output without its level.
class LogChannel {
public:
    using Sink = std::function<void(const String& text, std::int64_t level)>;

    static void setSink(Sink next);
    static void write(const String& text, std::int64_t level);
};

}  // namespace host
