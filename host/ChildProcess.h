#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/UniqueFd.h"

namespace host {

// A running child and what we hold of it: its pid, a pidfd that turns readable when it ends,
// and our ends of its pipes; its standard output and error share one. It is made the way a
// vfork is: it borrows our memory and a stack of ours until its exec, so nothing is copied per
// child. Whatever happens, it is killed and reaped when the object goes.
class ChildProcess {
public:
    struct Options {
        // argv[0] found through PATH, then in the system folders, so that a host started with
        // a user's PATH still finds the tools in sbin; a name with a slash stands for itself.
        bool searchPath = true;
        // Ours with LC_ALL=C and without LANGUAGE, so that what a tool prints reads the same
        // under any locale and can be parsed; false hands on ours as it is.
        bool toolEnvironment = true;
        // A pipe to its standard input; without it, it reads /dev/null.
        bool withInput = false;
        // A process group of its own, which kill() takes along: Ctrl-C at our terminal then
        // reaches us alone.
        bool ownGroup = false;
        // Killed when we die, also when we are killed.
        bool dieWithUs = false;
    };

    struct Status {
        bool signaled = false;
        int code = 0;  // the exit code, or the signal's number
        std::string describe() const;
        // As a shell gives it: the exit code, or 128 and the signal.
        int asExitStatus() const;
    };

    // Starts argv. When that fails nothing runs, and startError() holds the errno of why.
    ChildProcess(const std::vector<std::string>& argv, const Options& options);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    int startError() const { return startError_; }
    pid_t pid() const { return pid_; }
    int pidfd() const { return pidfd_.get(); }
    // Our end of its output, non-blocking; -1 once closed.
    int output() const { return output_.get(); }
    void closeOutput() { output_.reset(); }
    // Appends what the output holds, up to `limit` bytes; true once no writer is left.
    bool readOutput(std::string& into, std::size_t limit);
    // Without blocking: what does not fit in the pipe is lost. Our SIGPIPE is held off, so that
    // a host that does not ignore it survives a child that closed its input.
    void writeInput(std::string_view bytes);

    bool running() const { return pid_ > 0 && !gone_; }
    // The status once it has ended, or at once without `wait`: none while it runs, and none for
    // a child that the kernel reaped itself (a host that ignores SIGCHLD).
    std::optional<Status> poll(bool wait = false);
    // SIGKILL to the child, and to its group when it has one; does not wait.
    void sendKill();
    // Kills it and waits for its end.
    Status kill();

private:
    // 0, or the errno of what failed, and then nothing is held.
    int start(const std::vector<std::string>& argv, const Options& options);

    pid_t pid_ = -1;
    UniqueFd pidfd_;
    UniqueFd output_;
    UniqueFd input_;
    int startError_ = 0;
    bool ownGroup_ = false;
    bool gone_ = false;
    std::optional<Status> status_;
};

}  // namespace host
