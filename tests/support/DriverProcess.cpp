#include "DriverProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <stdexcept>

#include "host/Deadline.h"

extern char** environ;

namespace testsupport {

DriverProcess::DriverProcess(const std::vector<std::string>& arguments,
                             const std::string& program) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    out_ = host::UniqueFd(pipeFds[0]);
    const host::UniqueFd writeEnd(pipeFds[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writeEnd.get(), 1);
    std::vector<std::string> argv{program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<char*> raw(argv.size() + 1, nullptr);
    std::ranges::transform(argv, raw.begin(), [](std::string& word) { return word.data(); });
    const int error = ::posix_spawn(&pid_, program.c_str(), &actions, nullptr, raw.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("posix_spawn failed");
    }
}

DriverProcess::~DriverProcess() {
    if (!status_) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

void DriverProcess::readAvailable(int timeoutMs) {
    pollfd entry{out_.get(), POLLIN, 0};
    if (!out_ || ::poll(&entry, 1, timeoutMs) <= 0) {
        return;
    }
    char buffer[4096];
    const ssize_t n = ::read(out_.get(), buffer, sizeof buffer);
    if (n == 0) {
        out_.reset();
    }
    output_.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
}

std::optional<int> DriverProcess::waitForExit(std::chrono::milliseconds limit) {
    const auto deadline = host::Deadline::in(limit);
    for (int raw = 0; !status_; readAvailable(20)) {
        if (::waitpid(pid_, &raw, WNOHANG) == pid_) {
            status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
        } else if (deadline.passed()) {
            return std::nullopt;
        }
    }
    while (out_) {
        readAvailable(1000);
    }
    return status_;
}

const std::string& DriverProcess::output() {
    readAvailable(0);
    return output_;
}

}  // namespace testsupport
