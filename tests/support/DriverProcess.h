#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "host/ChildProcess.h"

namespace testsupport {

// The driver started as a child process, the way the controller starts it, with what it writes
// captured. The child is killed and reaped when the object goes, and killed when the test dies,
// so that a failing test never leaves it running.
class DriverProcess {
public:
    // arguments excludes element 0, which is the program's path.
    explicit DriverProcess(const std::vector<std::string>& arguments,
                           const std::string& program = ARP_PRESENCE_PATH);

    pid_t pid() const { return child_.pid(); }
    // The exit status, or nothing if the child is still running when the limit has passed.
    std::optional<int> waitForExit(std::chrono::milliseconds limit);
    // Its output so far, standard output and error together (all of it once it has exited).
    const std::string& output();

private:
    // Reads what came, after waiting up to `timeoutMs` for more or for the child's end.
    void readFor(int timeoutMs);

    host::ChildProcess child_;
    std::string output_;
    std::optional<int> status_;
};

}  // namespace testsupport
