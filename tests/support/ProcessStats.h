#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

namespace testsupport {

// Descriptors this process holds open, from /proc/self/fd.
inline int openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<int>(std::distance(begin(entries), end(entries))) - 1;  // its own
}

// Whether this process has a child, running or not yet reaped.
inline bool hasChildren() {
    // Without WNOHANG's "none has ended" answer, ECHILD: no child at all, running or unreaped.
    siginfo_t info{};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// Makes this process the reaper of its orphaned descendants: a grandchild left running then
// counts among its children.
inline void adoptOrphans() {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

// Kills and reaps every child of this process, and the orphans that come of it; how many.
inline int endChildren() {
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

// CPU time of a process's main thread in seconds, children excluded, from the nanosecond count
// in /proc/<pid>/schedstat: the clock ticks of /proc/<pid>/stat are too coarse.
inline double cpuSeconds(pid_t pid) {
    long long nanoseconds = 0;
    std::ifstream("/proc/" + std::to_string(pid) + "/schedstat") >> nanoseconds;
    return static_cast<double>(nanoseconds) / 1e9;
}

// Resident memory of a process, VmRSS from /proc/<pid>/status; -1 when it cannot be read.
inline long residentKilobytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

}  // namespace testsupport
