#include "host/Spawn.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace host::Spawn {

namespace {

struct Request {
    const char* path;
    char* const* argv;
    int input;
    int output;
    int execError;  // written by the child when exec fails; we read it after it has gone
};

// Only this thread spawns, and the parent sleeps while the child runs on it.
alignas(64) std::array<char, std::size_t{64} * 1024> childStack;

// dup2 onto itself would leave close-on-exec set.
int moveTo(int fd, int target) {
    return fd == target ? ::fcntl(fd, F_SETFD, 0) : ::dup2(fd, target);
}

// Runs in the child on the borrowed stack: only system calls until exec.
__attribute__((no_sanitize("address", "undefined"))) int childMain(void* argument) {
    auto* request = static_cast<Request*>(argument);
    // A handler of ours must never run here; ignored signals stay ignored, except SIGPIPE,
    // which we ignore for ourselves only.
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    for (int sig = 1; sig < NSIG; ++sig) {
        struct sigaction current {};
        if (::sigaction(sig, nullptr, &current) == 0 &&
            (sig == SIGPIPE || (current.sa_handler != SIG_DFL && current.sa_handler != SIG_IGN))) {
            ::sigaction(sig, &byDefault, nullptr);
        }
    }
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (moveTo(request->input, STDIN_FILENO) < 0 || moveTo(request->output, STDOUT_FILENO) < 0 ||
        moveTo(request->output, STDERR_FILENO) < 0) {
        request->execError = errno;
        ::_exit(127);
    }
    ::execve(request->path, request->argv, environ);
    request->execError = errno;
    ::_exit(127);
}

}  // namespace

Started start(const std::string& path, const std::vector<std::string>& argv, int input,
              int output) {
    std::vector<char*> args;
    args.reserve(argv.size() + 1);
    for (const std::string& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    Request request{path.c_str(), args.data(), input, output, 0};

    // Blocked until the child has reset its signals: no handler of ours may run in it.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &previous);
    int pidfd = -1;
    const pid_t pid = ::clone(childMain, childStack.data() + childStack.size(),
                              CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD, &request, &pidfd);
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (pid < 0) {
        return {};
    }
    if (request.execError != 0) {
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        ::close(pidfd);
        return {};
    }
    return {pid, pidfd};
}

std::string findExecutable(std::string_view folders, const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return name;
    }
    while (!folders.empty() && !name.empty()) {
        const std::size_t colon = folders.find(':');
        const std::string_view folder = folders.substr(0, colon);
        folders = colon == std::string_view::npos ? std::string_view() : folders.substr(colon + 1);
        if (folder.empty()) {
            continue;
        }
        std::string candidate = std::string(folder) + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

}  // namespace host::Spawn
