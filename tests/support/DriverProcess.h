#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/ChildProcess.h"

namespace testsupport {

// The driver started as a child process, the way the controller starts it, with what it writes
// captured. The child is killed and reaped when the object goes, and killed when the test dies,
// so that a failing test never leaves it running.
class DriverProcess {
public:
    // arguments excludes element 0, which is the program's path.
    // A program without a slash is found through PATH.
    explicit DriverProcess(const std::vector<std::string>& arguments,
                           const std::string& program = ARP_PRESENCE_PATH);
    // Runs a command line through sh to its end: the exit status (-1 when it outlived the limit),
    // and what it wrote to standard output and error.
    static std::pair<int, std::string> shell(const std::string& line,
                                             std::chrono::seconds limit = std::chrono::seconds(60));

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
