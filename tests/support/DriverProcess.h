#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "host/UniqueFd.h"

namespace testsupport {

// The driver started as a child process, the way the controller starts it, with its standard
// output captured. The child is killed and reaped when the object goes, so a failing test never
// leaves it running.
class DriverProcess {
public:
    // arguments excludes element 0, which is the program's path.
    explicit DriverProcess(const std::vector<std::string>& arguments,
                           const std::string& program = ARP_PRESENCE_PATH);
    ~DriverProcess();
    DriverProcess(const DriverProcess&) = delete;
    DriverProcess& operator=(const DriverProcess&) = delete;

    pid_t pid() const { return pid_; }
    // The exit status, or nothing if the child is still running when the limit has passed.
    std::optional<int> waitForExit(std::chrono::milliseconds limit);
    // Standard output so far (all of it once the child has exited).
    const std::string& output();

private:
    void readAvailable(int timeoutMs);

    pid_t pid_ = -1;
    host::UniqueFd out_;
    std::string output_;
    std::optional<int> status_;
};

}  // namespace testsupport
