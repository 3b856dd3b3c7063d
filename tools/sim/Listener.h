#pragma once

namespace sim {

// The simulated controller's TCP listener on 127.0.0.1. A busy port gives way to a free one.
class Listener {
public:
    // Throws std::runtime_error when nothing can be bound.
    explicit Listener(int port);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int fd() const { return fd_; }
    int port() const { return port_; }
    // True when the port asked for was busy and a free one was taken instead.
    bool tookFreePort() const { return tookFreePort_; }
    // A connected client, non-blocking, or -1 when none is waiting.
    int accept() const;
    void close();

private:
    int fd_ = -1;
    int port_ = 0;
    bool tookFreePort_ = false;
};

}  // namespace sim
