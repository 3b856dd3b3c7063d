#pragma once

#include <string>
#include <utility>
#include <vector>

namespace testsupport {

// What the controller side of a test sees: the greeting line and then whole multi-packets,
// decoded independently of the driver's own code so that the two can check each other.
struct ControllerView {
    std::string greeting;
    // The messages with their pairs in wire order, as "key=value key=value".
    std::vector<std::string> inOrder;
    std::string rest;  // bytes that do not form a whole message yet
};

inline std::size_t readLE16(const std::string& bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes[at]) |
           (static_cast<std::size_t>(static_cast<unsigned char>(bytes[at + 1])) << 8);
}

// A multi-packet as the controller writes it, flag 0x80, pairs in the given order.
inline std::string multiPacket(const std::vector<std::pair<std::string, std::string>>& pairs) {
    std::string body;
    for (const auto& [key, value] : pairs) {
        body += key + static_cast<char>(value.size() & 0xFF) +
                static_cast<char>(value.size() >> 8) + value;
    }
    const std::size_t length = body.size() + 4;
    return std::string("J") + static_cast<char>(length & 0xFF) + static_cast<char>(length >> 8) +
           "\x80" + body;
}

// Splits off a greeting up to its carriage return when the stream starts with "ard:".
inline ControllerView readControllerStream(const std::string& bytes) {
    ControllerView view;
    std::size_t at = 0;
    if (bytes.starts_with("ard:")) {
        at = bytes.find('\r') + 1;  // 0 when the greeting has not come whole
        view.greeting = bytes.substr(0, at);
        if (at == 0) {
            view.rest = bytes;
            return view;
        }
    }
    while (bytes.size() - at >= 4 && bytes[at] == 'J') {
        const std::size_t length = readLE16(bytes, at + 1);
        if (length < 4 || bytes.size() - at < length) {
            break;
        }
        std::string ordered;
        for (std::size_t pair = at + 4; pair + 6 <= at + length;) {
            const std::size_t valueLength = readLE16(bytes, pair + 4);
            ordered += (ordered.empty() ? "" : " ") + bytes.substr(pair, 4) + "=" +
                       bytes.substr(pair + 6, valueLength);
            pair += 6 + valueLength;
        }
        view.inOrder.push_back(std::move(ordered));
        at += length;
    }
    view.rest = bytes.substr(at);
    return view;
}

}  // namespace testsupport
