#include "tools/sim/DriverStream.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "host/ByteOrder.h"

namespace sim {

namespace {

constexpr char kLead = 'J';
constexpr std::size_t kHeaderSize = 4;

}  // namespace

void DriverStream::append(std::string_view bytes) {
    buffer_.erase(0, head_);
    head_ = 0;
    buffer_.append(bytes);
}

std::string DriverStream::take(std::size_t count) {
    std::string piece = buffer_.substr(head_, count);
    head_ += piece.size();
    return piece;
}

std::optional<DriverStream::Item> DriverStream::next() {
    return greeted_ ? nextPacket() : nextGreeting();
}

std::optional<DriverStream::Item> DriverStream::nextGreeting() {
    const std::string_view pending = std::string_view(buffer_).substr(head_);
    const std::size_t end = pending.substr(0, kMostGreetingBytes).find('\r');
    if (end != std::string_view::npos) {
        greeted_ = true;
        Item item{Item::Kind::Greeting, take(end), nullptr};
        take(1);
        return item;
    }
    if (pending.size() >= kMostGreetingBytes) {
        // No line: what came is read as messages, so that a driver without a greeting still
        // shows what it sends.
        greeted_ = true;
        return Item{
            Item::Kind::Garbage,
            "no greeting line in the first " + std::to_string(kMostGreetingBytes) + " bytes",
            nullptr};
    }
    return std::nullopt;
}

std::optional<DriverStream::Item> DriverStream::nextPacket() {
    const std::string_view pending = std::string_view(buffer_).substr(head_);
    if (pending.empty()) {
        return std::nullopt;
    }
    if (pending.front() != kLead) {
        // Out of step: skip to the next byte that could begin a packet.
        const std::size_t skip = std::min(pending.find(kLead, 1), pending.size());
        std::array<char, 8> first{};
        std::snprintf(first.data(), first.size(), "0x%02x", static_cast<unsigned char>(pending[0]));
        take(skip);
        return Item{Item::Kind::Garbage,
                    "skipped " + std::to_string(skip) + " bytes that begin no message (first " +
                        first.data() + ")",
                    nullptr};
    }
    if (pending.size() < 3) {
        return std::nullopt;
    }
    const std::size_t length = host::byteorder::load<2>(pending.data() + 1, true);
    if (length < kHeaderSize) {
        take(1);
        return Item{Item::Kind::Garbage,
                    "skipped a message whose length field is " + std::to_string(length), nullptr};
    }
    if (pending.size() < length) {
        return std::nullopt;
    }
    auto message = host::New<cAmbrelisCommand>();
    message->Constructor();
    if (!message->initFromMultiPacket(host::String(take(length)))) {
        return Item{Item::Kind::Garbage, "a message that could not be read", nullptr};
    }
    return Item{Item::Kind::Message, {}, message};
}

}  // namespace sim
