#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/LogChannel.h"

using Lines = std::vector<std::string>;

// Collects log lines as "level text" while it lives, then puts the default channel back.
struct LogCapture {
    LogCapture() {
        host::LogChannel::setSink([this](const host::String& text, std::int64_t level) {
            lines.push_back(std::to_string(level) + " " + text.bytes());
        });
    }
    ~LogCapture() { host::LogChannel::setSink(nullptr); }

    Lines lines;
};
