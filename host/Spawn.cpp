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
    char* const* envp;
    int input;
    int output;
    int execError;  // written by the child when exec fails; we read it after it has gone
};

// Only this thread spawns, and the parent sleeps while the child runs on it.
alignas(64) std::array<char, std::size_t{64} * 1024> childStack;

// The null-terminated array that exec wants; the strings must outlive it.
std::vector<char*> pointersTo(const std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (const std::string& text : strings) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

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
    ::execve(request->path, request->argv, request->envp);
    request->execError = errno;
    ::_exit(127);
}

}  // namespace

Started start(const std::string& path, const std::vector<std::string>& argv,
              const std::vector<std::string>& environment, int input, int output) {
    const std::vector<char*> args = pointersTo(argv);
    const std::vector<char*> envp = pointersTo(environment);
    Request request{path.c_str(), args.data(), envp.data(), input, output, 0};

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

std::vector<std::string> toolEnvironment() {
    std::vector<std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view variable(*entry);
        if (!variable.starts_with("LC_ALL=") && !variable.starts_with("LANGUAGE=")) {
            variables.emplace_back(variable);
        }
    }
    variables.emplace_back("LC_ALL=C");
    return variables;
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
