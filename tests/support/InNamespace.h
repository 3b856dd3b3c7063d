#pragma once

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>

// Moves the calling thread into a network namespace for as long as the object lives. Sockets
// made meanwhile belong to that namespace, and children started meanwhile are born in it.
class InNamespace {
public:
    // An empty path leaves the thread where it is. Namespaces belong to threads: this thread's,
    // not the process's, is changed.
    explicit InNamespace(const std::string& path) {
        if (path.empty()) {
            return;
        }
        home_ = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        const int target = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (home_ >= 0 && (target < 0 || ::setns(target, CLONE_NEWNET) != 0)) {
            ::close(std::exchange(home_, -1));
        }
        ::close(target);  // harmless when it did not open
    }
    // A thread left in the wrong namespace would quietly spoil every later test.
    ~InNamespace() {
        if (home_ >= 0 && ::setns(home_, CLONE_NEWNET) != 0) {
            std::abort();
        }
        ::close(home_);  // harmless when it did not open
    }
    InNamespace(const InNamespace&) = delete;
    InNamespace& operator=(const InNamespace&) = delete;

    bool entered() const { return home_ >= 0; }

private:
    int home_ = -1;
};
