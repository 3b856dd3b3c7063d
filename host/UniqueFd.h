#pragma once

#include <unistd.h>

#include <utility>

namespace host {

// The one owner of a file descriptor: closed when the owner goes, moved but never copied.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Closes what it holds; the result of close() for those who must know it.
    int reset() { return fd_ >= 0 ? ::close(std::exchange(fd_, -1)) : 0; }

private:
    int fd_ = -1;
};

}  // namespace host
