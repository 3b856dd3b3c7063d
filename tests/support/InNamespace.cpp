#include "InNamespace.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>

InNamespace::InNamespace(const std::string& path) {
    if (path.empty()) {
        return;
    }
    // Namespaces belong to threads: this thread's, not the process's.
    home_ = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    const int target = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (home_ >= 0 && (target < 0 || ::setns(target, CLONE_NEWNET) != 0)) {
        ::close(home_);
        home_ = -1;
    }
    ::close(target);  // harmless when it did not open
}

InNamespace::~InNamespace() {
    if (home_ < 0) {
        return;
    }
    // A thread left in the wrong namespace would quietly spoil every later test.
    if (::setns(home_, CLONE_NEWNET) != 0) {
        std::abort();
    }
    ::close(home_);
}
