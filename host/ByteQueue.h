#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

// Bytes appended at the back and consumed from the front. Consuming moves a head instead of the
// bytes, and the rest moves down only once it is no longer than what was consumed, so draining a
// long queue in small pieces stays linear. A queue that drains gives its storage back.
class ByteQueue {
public:
    std::size_t size() const { return bytes_.size() - head_; }
    bool empty() const { return size() == 0; }
    std::string_view view() const { return std::string_view(bytes_).substr(head_); }

    void append(std::string_view more) { bytes_ += more; }
    // A large delivery is taken over instead of copied: the rest goes before it.
    void append(std::string&& more);
    void consume(std::size_t count);
    // The first `count` bytes, consumed.
    std::string take(std::size_t count);
    // Gives the storage back.
    void clear();

private:
    // Storage kept after the queue has drained; more is given back.
    static constexpr std::size_t kKeptCapacity = std::size_t{256} << 10;

    std::string bytes_;
    std::size_t head_ = 0;
};

}  // namespace host
