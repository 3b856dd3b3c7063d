#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "host/Ref.h"
#include "wire/cAmbrelisCommand.h"

namespace sim {

// Cuts what the driver writes on the link: first its greeting line, then multi-packets. Every
// length is checked against the bytes at hand, and no packet can be longer than its 16-bit
// length field says, so the buffer never holds more than one packet and one read.
class DriverStream {
public:
    struct Item {
        enum class Kind { Greeting, Message, Garbage };
        Kind kind;
        std::string text;  // the greeting without its carriage return, or what was wrong
        host::Ref<cAmbrelisCommand> message;
    };

    static constexpr std::size_t kMostGreetingBytes = 256;

    void append(std::string_view bytes);
    // The next whole item, or nothing until more bytes come.
    std::optional<Item> next();

private:
    std::optional<Item> nextGreeting();
    std::optional<Item> nextPacket();
    std::string take(std::size_t count);

    std::string buffer_;
    std::size_t head_ = 0;
    bool greeted_ = false;
};

}  // namespace sim
