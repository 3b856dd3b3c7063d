#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace testsupport {

// A plain blocking TCP listener on 127.0.0.1 for tests: it plays the controller. Every wait has
// a time limit, so a test that expects bytes fails instead of hanging.
class LoopbackServer {
public:
    // On a free port.
    LoopbackServer();
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    int port() const { return port_; }

    bool accept(std::chrono::milliseconds limit = std::chrono::seconds(5));
    void send(const std::string& bytes);
    // Reads until `count` bytes have come, the peer has closed, or the limit has passed; a
    // spent limit still takes what is already there.
    std::string receive(std::chrono::milliseconds limit, std::size_t count = SIZE_MAX);
    void closeClient();
    // Fills the queue of connections waiting to be accepted; a further connect then neither
    // completes nor is refused. False if the queue never filled.
    bool fillBacklog();

private:
    int listener_ = -1;
    int client_ = -1;
    int port_ = 0;
    std::vector<int> waiting_;  // connections made by fillBacklog, never accepted
};

// Closes a fresh listener on a free port and returns that port: connecting there is refused.
int refusedPort();

}  // namespace testsupport
