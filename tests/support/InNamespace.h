#pragma once

#include <fcntl.h>
#include <sched.h>

#include <cstdlib>
#include <string>

#include "host/UniqueFd.h"

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
        home_ = host::UniqueFd(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
        const host::UniqueFd target(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!home_ || !target || ::setns(target.get(), CLONE_NEWNET) != 0) {
            home_.reset();
        }
    }
    // A thread left in the wrong namespace would quietly spoil every later test.
    ~InNamespace() {
        if (home_ && ::setns(home_.get(), CLONE_NEWNET) != 0) {
            std::abort();
        }
    }
    InNamespace(const InNamespace&) = delete;
    InNamespace& operator=(const InNamespace&) = delete;

    bool entered() const { return static_cast<bool>(home_); }

private:
    host::UniqueFd home_;
};
