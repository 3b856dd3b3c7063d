#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

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
    // A delivery at least as long as the rest is taken over instead of copied.
    void append(std::string&& more) {
        if (size() > more.size()) {
            append(std::string_view(more));
            return;
        }
        std::string rest(view());
        clear();  // before the delivery grows by the rest
        more.insert(0, rest);
        bytes_ = std::move(more);
    }

    void consume(std::size_t count) {
        head_ += count;
        if (head_ == bytes_.size()) {
            if (bytes_.capacity() > kKeptCapacity) {
                clear();
            } else {
                bytes_.clear();
                head_ = 0;
            }
        } else if (head_ >= size()) {
            bytes_.erase(0, std::exchange(head_, 0));
            if (bytes_.capacity() > kKeptCapacity && bytes_.capacity() > 4 * bytes_.size()) {
                bytes_.shrink_to_fit();
            }
        }
    }

    // The first `count` bytes, consumed.
    std::string take(std::size_t count) {
        std::string front(view().substr(0, count));
        consume(front.size());
        return front;
    }

    // Gives the storage back.
    void clear() {
        std::string().swap(bytes_);
        head_ = 0;
    }

private:
    // Storage kept after the queue has drained; more is given back.
    static constexpr std::size_t kKeptCapacity = std::size_t{256} << 10;

    std::string bytes_;
    std::size_t head_ = 0;
};

}  // namespace host
