#include "host/ChildProcess.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace host {

namespace {

constexpr int kCouldNotStart = 127;
constexpr std::string_view kSystemFolders = "/usr/sbin:/sbin:/usr/bin:/bin";

struct Request {
    char* const* places;  // where the program may be, tried in turn
    char* const* argv;
    char* const* envp;
    int input;  // -1: /dev/null
    int output;
    pid_t parent;
    bool ownGroup;
    bool dieWithUs;
    int error;  // written by the child when it could not exec; read once it has gone
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

// The folders of PATH, then the system's. The child tries them in turn, as execvp does, so
// that no folder costs us a system call.
std::vector<std::string> placesOf(const std::string& name, bool searchPath) {
    if (!searchPath || name.find('/') != std::string::npos) {
        return {name};
    }
    const char* path = std::getenv("PATH");
    const std::string folders =
        (path != nullptr ? path : "") + std::string(":") + std::string(kSystemFolders);
    std::vector<std::string> places;
    for (std::size_t at = 0; at <= folders.size();) {
        const std::size_t end = std::min(folders.find(':', at), folders.size());
        if (end > at) {
            places.push_back(folders.substr(at, end - at) + "/" + name);
        }
        at = end + 1;
    }
    return places;
}

// Pointers into environ, which cannot change before the child has called exec: we wait for it.
std::vector<char*> toolEnvironment() {
    static std::array<char, 9> cLocale{"LC_ALL=C"};
    std::vector<char*> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view variable(*entry);
        if (!variable.starts_with("LC_ALL=") && !variable.starts_with("LANGUAGE=")) {
            variables.push_back(*entry);
        }
    }
    variables.push_back(cLocale.data());
    variables.push_back(nullptr);
    return variables;
}

// dup2 onto itself would leave close-on-exec set. Our pipe ends are non-blocking; the child's
// are not, as programs expect of their standard streams.
bool moveTo(int fd, int target) {
    return ::fcntl(fd, F_SETFL, 0) == 0 &&
           (fd == target ? ::fcntl(fd, F_SETFD, 0) : ::dup2(fd, target)) >= 0;
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
    // A parent gone before the death signal was set would never send it.
    if (request->dieWithUs &&
        (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != request->parent)) {
        request->error = ESRCH;
        ::_exit(kCouldNotStart);
    }
    if (request->ownGroup) {
        ::setpgid(0, 0);
    }
    const int input =
        request->input >= 0 ? request->input : ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (input < 0 || !moveTo(input, STDIN_FILENO) || !moveTo(request->output, STDOUT_FILENO) ||
        !moveTo(request->output, STDERR_FILENO)) {
        request->error = errno;
        ::_exit(kCouldNotStart);
    }
    // Kept local until the end: a failed place before the one that runs is no failure.
    int error = ENOENT;
    for (char* const* place = request->places; *place != nullptr; ++place) {
        ::execve(*place, request->argv, request->envp);
        error = errno == ENOENT ? error : errno;
    }
    request->error = error;
    ::_exit(kCouldNotStart);
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const Options& options)
    : ownGroup_(options.ownGroup) {
    startError_ = start(argv, options);
}

int ChildProcess::start(const std::vector<std::string>& argv, const Options& options) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        return errno;
    }
    UniqueFd output(ends[0]);
    const UniqueFd childOutput(ends[1]);
    UniqueFd childInput;
    UniqueFd input;
    if (options.withInput) {
        if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
            return errno;
        }
        childInput = UniqueFd(ends[0]);
        input = UniqueFd(ends[1]);
    }
    const std::vector<std::string> places = placesOf(argv.front(), options.searchPath);
    const std::vector<char*> placePointers = pointersTo(places);
    const std::vector<char*> args = pointersTo(argv);
    const std::vector<char*> tools =
        options.toolEnvironment ? toolEnvironment() : std::vector<char*>();
    Request request{.places = placePointers.data(),
                    .argv = args.data(),
                    .envp = options.toolEnvironment ? tools.data() : environ,
                    .input = childInput.get(),
                    .output = childOutput.get(),
                    .parent = options.dieWithUs ? ::getpid() : 0,
                    .ownGroup = options.ownGroup,
                    .dieWithUs = options.dieWithUs,
                    .error = 0};

    // Blocked until the child has reset its signals: no handler of ours may run in it.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &previous);
    int pidfd = -1;
    const pid_t pid = ::clone(childMain, childStack.data() + childStack.size(),
                              CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD, &request, &pidfd);
    const int cloneError = errno;
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (pid < 0) {
        return cloneError;
    }
    UniqueFd childPidfd(pidfd);
    if (request.error != 0) {
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        return request.error;
    }
    pid_ = pid;
    pidfd_ = std::move(childPidfd);
    output_ = std::move(output);
    input_ = std::move(input);
    return 0;
}

ChildProcess::~ChildProcess() {
    if (running()) {
        kill();
    }
}

bool ChildProcess::readOutput(std::string& into, std::size_t limit) {
    std::array<char, std::size_t{16} * 1024> buffer;  // filled by read(), so left uninitialised
    std::size_t total = 0;
    while (total < limit) {
        const ssize_t count = ::read(output_.get(), buffer.data(), buffer.size());
        if (count > 0) {
            into.append(buffer.data(), static_cast<std::size_t>(count));
            total += static_cast<std::size_t>(count);
            continue;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        // The end, or a broken pipe, which reads as its end; only an empty pipe is not.
        return count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
    }
    return false;
}

void ChildProcess::writeInput(std::string_view bytes) {
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigset_t previous;
    ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    std::size_t written = 0;
    int error = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(input_.get(), bytes.data() + written, bytes.size() - written);
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            error = errno;
            break;
        }
    }
    // The SIGPIPE that the write raised is taken back before the mask opens again.
    if (error == EPIPE) {
        timespec now{};
        while (::sigtimedwait(&pipeSignal, nullptr, &now) < 0 && errno == EINTR) {
        }
    }
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

void ChildProcess::sendKill() {
    if (!running()) {
        return;
    }
    if (ownGroup_) {
        ::kill(-pid_, SIGKILL);  // takes its own children along
    }
    ::syscall(SYS_pidfd_send_signal, pidfd_.get(), SIGKILL, nullptr, 0);
}

ChildProcess::Status ChildProcess::kill() {
    sendKill();
    // Only a child that the kernel reaped for us leaves no status.
    return poll(true).value_or(Status{true, SIGKILL});
}

std::optional<ChildProcess::Status> ChildProcess::poll(bool wait) {
    if (!running()) {
        return status_;
    }
    siginfo_t info{};
    int result;
    do {
        result = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | (wait ? 0 : WNOHANG));
    } while (result < 0 && errno == EINTR);
    if (result == 0 && info.si_pid == 0) {
        return std::nullopt;  // still running
    }
    gone_ = true;
    if (result == 0) {
        status_ = Status{info.si_code == CLD_KILLED || info.si_code == CLD_DUMPED, info.si_status};
    }
    return status_;
}

std::string ChildProcess::Status::describe() const {
    if (signaled) {
        return "killed by signal " + std::to_string(code) + " (" + ::strsignal(code) + ")";
    }
    return "exit status " + std::to_string(code);
}

int ChildProcess::Status::asExitStatus() const {
    return signaled ? 128 + code : code;
}

}  // namespace host
