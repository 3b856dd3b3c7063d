#pragma once

#include <optional>

namespace sim {

// SIGINT, SIGTERM, SIGHUP and SIGWINCH as reads on a descriptor, so that the one poll loop
// takes them. They stay blocked for the rest of the process; the driver unblocks them for
// itself.
class SignalWatch {
public:
    SignalWatch();
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    int fd() const { return fd_; }
    // The next signal that came, or nothing.
    std::optional<int> take() const;

private:
    int fd_ = -1;
};

}  // namespace sim
