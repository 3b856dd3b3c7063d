#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/ByteOrder.h"
#include "wire/cAmbrelisCommand.h"

namespace testsupport {

// What the controller side of a test sees: the greeting line and then whole multi-packets, read
// by the project's own message class (whose bytes its own tests pin down).
struct ControllerView {
    std::string greeting;
    // The messages with their pairs in wire order, as "key=value key=value".
    std::vector<std::string> inOrder;
    std::string rest;  // bytes that do not form a whole message yet
};

// A multi-packet as the controller writes it, flag 0x80, pairs in the given order.
inline std::string multiPacket(const std::vector<std::pair<std::string, std::string>>& pairs) {
    cAmbrelisCommand message;
    for (const auto& [key, value] : pairs) {
        message.SetMulti(host::String(key), host::String(value));
    }
    return message.GetRawCommand().bytes();
}

// Splits off a greeting up to its carriage return when the stream starts with "ard:".
inline ControllerView readControllerStream(const std::string& bytes) {
    ControllerView view;
    std::size_t at = 0;
    if (bytes.starts_with("ard:")) {
        at = bytes.find('\r') + 1;  // 0 when the greeting has not come whole
        view.greeting = bytes.substr(0, at);
    }
    while (bytes.size() - at >= 4 && bytes[at] == 'J') {
        const std::size_t length = host::byteorder::load<2>(bytes.data() + at + 1, true);
        if (length < 4 || bytes.size() - at < length) {
            break;
        }
        cAmbrelisCommand message;
        message.initFromMultiPacket(host::String(bytes.substr(at, length)));
        std::string ordered;
        for (const host::String& key : message.GetKeys()) {
            ordered += (ordered.empty() ? "" : " ") + key.bytes() + "=" +
                       message.MultiDict->Value(key).bytes();
        }
        view.inOrder.push_back(std::move(ordered));
        at += length;
    }
    view.rest = bytes.substr(at);
    return view;
}

}  // namespace testsupport
