#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

// Answers echo requests in a host's namespace in place of its kernel, which must be set to
// ignore them, the way a poor link does: the first replies lost, or every reply late.
class EchoResponder {
public:
    struct Behaviour {
        int lostFirst;
        std::chrono::milliseconds delay;
    };

    EchoResponder(const std::string& namespacePath, Behaviour behaviour);
    ~EchoResponder();
    EchoResponder(const EchoResponder&) = delete;
    EchoResponder& operator=(const EchoResponder&) = delete;

    bool ready() const { return socket_ >= 0; }

private:
    void serve();

    Behaviour behaviour_;
    int socket_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};
