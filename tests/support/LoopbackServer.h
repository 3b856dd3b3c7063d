#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/UniqueFd.h"

namespace testsupport {

// A plain blocking TCP listener on 127.0.0.1 for tests: it plays the controller. Every wait has
// a time limit, so a test that expects bytes fails instead of hanging.
class LoopbackServer {
public:
    // On a free port.
    LoopbackServer();

    int port() const { return port_; }

    bool accept(std::chrono::milliseconds limit = std::chrono::seconds(5));
    void send(const std::string& bytes);
    // Reads until `count` bytes have come, the peer has closed, or the limit has passed; a
    // spent limit still takes what is already there.
    std::string receive(std::chrono::milliseconds limit, std::size_t count = SIZE_MAX);
    // Waits until `count` whole messages have come since the last call or the limit has passed,
    // and returns those that came, each as "key=value ..." in wire order. Not to be mixed with
    // receive(), which would take bytes from under it.
    std::vector<std::string> take(std::size_t count, std::chrono::milliseconds limit);
    // The greeting that take() found.
    const std::string& greeting() const { return greeting_; }
    void closeClient() { client_.reset(); }
    // Fills the queue of connections waiting to be accepted; a further connect then neither
    // completes nor is refused. False if the queue never filled.
    bool fillBacklog();

private:
    host::UniqueFd listener_, client_;
    int port_ = 0;
    std::vector<host::UniqueFd> waiting_;  // connections made by fillBacklog, never accepted
    std::string greeting_, pending_;       // pending_: the start of a message not yet whole
};

// Closes a fresh listener on a free port and returns that port: connecting there is refused.
int refusedPort();

}  // namespace testsupport
