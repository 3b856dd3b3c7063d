#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace sim {

// The driver as a child process: its own process group, so that Ctrl-C reaches only the
// simulator; standard input from /dev/null; standard output and error into a pipe; a pidfd
// that turns readable when it ends; and a death signal, so that it dies with the simulator
// even when the simulator is killed. Whatever happens, it is killed and reaped when the object
// goes.
class DriverChild {
public:
    struct Status {
        bool signaled = false;
        int code = 0;  // exit code, or the signal's number
        std::string describe() const;
        // As a shell gives it: the exit code, or 128 and the signal.
        int asExitStatus() const;
    };

    // argv[0] is the program's path. Throws std::runtime_error when it cannot be started.
    explicit DriverChild(const std::vector<std::string>& argv);
    ~DriverChild();
    DriverChild(const DriverChild&) = delete;
    DriverChild& operator=(const DriverChild&) = delete;

    pid_t pid() const { return pid_; }
    int pidfd() const { return pidfd_; }
    // Read end of the output pipe, non-blocking; -1 once closed.
    int outputFd() const { return outputFd_; }
    void closeOutput();

    // The status once it has ended, without waiting.
    std::optional<Status> poll();
    // Kills the child and its process group and waits for it.
    Status kill();
    bool running() const { return !status_; }

private:
    std::optional<Status> reap(bool wait);

    pid_t pid_ = -1;
    int pidfd_ = -1;
    int outputFd_ = -1;
    std::optional<Status> status_;
};

}  // namespace sim
