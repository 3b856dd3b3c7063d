#include "MultiPacketReader.h"

namespace testsupport {

static std::size_t readLE16(const std::string& bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes[at]) |
           (static_cast<std::size_t>(static_cast<unsigned char>(bytes[at + 1])) << 8);
}

std::string multiPacket(const std::vector<std::pair<std::string, std::string>>& pairs) {
    std::string body;
    for (const auto& [key, value] : pairs) {
        body += key + static_cast<char>(value.size() & 0xFF) +
                static_cast<char>(value.size() >> 8) + value;
    }
    const std::size_t length = body.size() + 4;
    return std::string("J") + static_cast<char>(length & 0xFF) + static_cast<char>(length >> 8) +
           "\x80" + body;
}

ControllerView readControllerStream(const std::string& bytes) {
    ControllerView view;
    std::size_t at = 0;
    if (bytes.rfind("ard:", 0) == 0) {
        auto end = bytes.find('\r');
        if (end == std::string::npos) {
            view.rest = bytes;
            return view;
        }
        view.greeting = bytes.substr(0, end + 1);
        at = end + 1;
    }
    while (bytes.size() - at >= 4 && bytes[at] == 'J') {
        std::size_t length = readLE16(bytes, at + 1);
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
