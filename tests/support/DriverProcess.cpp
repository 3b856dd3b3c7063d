#include "DriverProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

extern char** environ;

namespace testsupport {

DriverProcess::DriverProcess(const std::vector<std::string>& arguments,
                             const std::string& program) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
    std::vector<std::string> argv{program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<char*> raw(argv.size() + 1, nullptr);
    std::ranges::transform(argv, raw.begin(), [](std::string& word) { return word.data(); });
    int error = ::posix_spawn(&pid_, program.c_str(), &actions, nullptr, raw.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    outFd_ = pipeFds[0];
    if (error != 0) {
        pid_ = -1;
        throw std::runtime_error("posix_spawn failed");
    }
}

DriverProcess::~DriverProcess() {
    if (pid_ > 0 && !status_) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    if (outFd_ >= 0) {
        ::close(outFd_);
    }
}

void DriverProcess::readAvailable(int timeoutMs) {
    if (outFd_ < 0) {
        return;
    }
    pollfd entry{outFd_, POLLIN, 0};
    if (::poll(&entry, 1, timeoutMs) <= 0) {
        return;
    }
    char buffer[4096];
    ssize_t n = ::read(outFd_, buffer, sizeof buffer);
    if (n > 0) {
        output_.append(buffer, static_cast<std::size_t>(n));
    } else if (n == 0) {
        ::close(outFd_);
        outFd_ = -1;
    }
}

std::optional<int> DriverProcess::waitForExit(std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (!status_) {
        int raw = 0;
        pid_t done = ::waitpid(pid_, &raw, WNOHANG);
        if (done == pid_) {
            status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        readAvailable(20);
    }
    while (outFd_ >= 0) {
        readAvailable(1000);
    }
    return status_;
}

const std::string& DriverProcess::output() {
    readAvailable(0);
    return output_;
}

}  // namespace testsupport
