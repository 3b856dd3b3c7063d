#include "ProcessStats.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
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

int childProcesses() {
    const std::string self = std::to_string(::getpid());
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string line;
        if (!stat || !std::getline(stat, line)) {
            continue;
        }
        // Fields after the command, which is in parentheses and may hold blanks.
        auto close = line.rfind(')');
        if (close == std::string::npos) {
            continue;
        }
        std::string state, parent;
        std::istringstream rest(line.substr(close + 2));
        rest >> state >> parent;
        if (parent == self) {
            ++count;
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
