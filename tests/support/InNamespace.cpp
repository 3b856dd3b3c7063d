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
    const int home = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    const int target = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (home >= 0 && target >= 0 && ::setns(target, CLONE_NEWNET) == 0) {
        home_ = home;
    } else if (home >= 0) {
        ::close(home);
    }
    if (target >= 0) {
        ::close(target);
    }
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
