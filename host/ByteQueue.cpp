#include "host/ByteQueue.h"

#include <utility>

namespace host {

void ByteQueue::append(std::string&& more) {
    if (size() > more.size()) {
        append(std::string_view(more));
        return;
    }
    // The old storage is given back before the delivery grows by the rest.
    std::string rest(view());
    clear();
    more.insert(0, rest);
    bytes_ = std::move(more);
}

void ByteQueue::consume(std::size_t count) {
    head_ += count;
    if (head_ == bytes_.size()) {
        head_ = 0;
        if (bytes_.capacity() > kKeptCapacity) {
            std::string().swap(bytes_);
        } else {
            bytes_.clear();
        }
    } else if (head_ >= size()) {
        bytes_.erase(0, head_);
        head_ = 0;
        if (bytes_.capacity() > kKeptCapacity && bytes_.capacity() > 4 * bytes_.size()) {
            bytes_.shrink_to_fit();
        }
    }
}

std::string ByteQueue::take(std::size_t count) {
    std::string front(view().substr(0, count));
    consume(front.size());
    return front;
}

void ByteQueue::clear() {
    std::string().swap(bytes_);
    head_ = 0;
}

}  // namespace host
