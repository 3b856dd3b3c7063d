#include "ProcessStats.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

namespace testsupport {

int openDescriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count - 1;  // the iterator's own descriptor
}

bool hasChildren() {
    // Without WNOHANG's "none has ended" answer, ECHILD: no child at all, running or unreaped.
    siginfo_t info{};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

void adoptOrphans() {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

int endChildren() {
    int count = 0;
    // A child's own children come to us as it ends, so the list is read again until it is empty.
    for (int ended = -1; ended != 0; count += ended) {
        // Orphans are handed to the main thread.
        std::ifstream children("/proc/self/task/" + std::to_string(::getpid()) + "/children");
        ended = 0;
        for (pid_t pid = 0; children >> pid; ++ended) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
    }
    return count;
}

double cpuSeconds(pid_t pid) {
    std::ifstream schedstat("/proc/" + std::to_string(pid) + "/schedstat");
    long long nanoseconds = 0;
    schedstat >> nanoseconds;
    return static_cast<double>(nanoseconds) / 1e9;
}

long residentKilobytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

}  // namespace testsupport
