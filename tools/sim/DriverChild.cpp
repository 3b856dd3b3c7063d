#include "tools/sim/DriverChild.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <initializer_list>
#include <stdexcept>

namespace sim {

namespace {

constexpr int kExecFailed = 127;

[[noreturn]] void failInChild(int reportFd) {
    const int error = errno;
    [[maybe_unused]] ssize_t ignored = ::write(reportFd, &error, sizeof error);
    ::_exit(kExecFailed);
}

// Runs in the child between fork and exec: only async-signal-safe calls.
[[noreturn]] void execDriver(char* const* argv, pid_t parent, int nullFd, int outFd, int reportFd) {
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent) {
        ::_exit(kExecFailed);
    }
    ::setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    if (::dup2(nullFd, 0) < 0 || ::dup2(outFd, 1) < 0 || ::dup2(outFd, 2) < 0) {
        failInChild(reportFd);
    }
    ::execv(argv[0], argv);
    failInChild(reportFd);
}

void closeFd(int& fd) {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

}  // namespace

DriverChild::DriverChild(const std::vector<std::string>& argv) {
    std::vector<std::string> copies = argv;
    std::vector<char*> raw;
    raw.reserve(copies.size() + 1);
    for (std::string& argument : copies) {
        raw.push_back(argument.data());
    }
    raw.push_back(nullptr);

    std::array<int, 2> output = {-1, -1};
    std::array<int, 2> report = {-1, -1};
    int nullFd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    const auto closeAll = [&] {
        for (std::array<int, 2>* pipe : {&output, &report}) {
            for (int& fd : *pipe) {
                closeFd(fd);
            }
        }
        closeFd(nullFd);
    };
    if (nullFd < 0 || ::pipe2(output.data(), O_CLOEXEC) != 0 ||
        ::pipe2(report.data(), O_CLOEXEC) != 0) {
        const int error = errno;
        closeAll();
        throw std::runtime_error(std::string("cannot make the driver's pipes: ") +
                                 std::strerror(error));
    }
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) {
        execDriver(raw.data(), parent, nullFd, output[1], report[1]);
    }
    const int forkError = errno;
    if (pid_ < 0) {
        closeAll();
        throw std::runtime_error(std::string("cannot fork: ") + std::strerror(forkError));
    }
    closeFd(nullFd);
    closeFd(output[1]);
    closeFd(report[1]);

    // The report pipe closes on a successful exec and carries errno otherwise.
    int execError = 0;
    ssize_t got;
    do {
        got = ::read(report[0], &execError, sizeof execError);
    } while (got < 0 && errno == EINTR);
    closeFd(report[0]);
    pidfd_ = got == 0 ? static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)) : -1;
    const int pidfdError = errno;
    if (pidfd_ < 0) {
        closeAll();
        kill();
        throw std::runtime_error(got == static_cast<ssize_t>(sizeof execError)
                                     ? "cannot start " + argv[0] + ": " + std::strerror(execError)
                                     : std::string("cannot watch the driver: ") +
                                           std::strerror(pidfdError));
    }
    outputFd_ = output[0];
    ::fcntl(outputFd_, F_SETFL, O_NONBLOCK);
}

DriverChild::~DriverChild() {
    if (running()) {
        kill();
    }
    closeFd(pidfd_);
    closeOutput();
}

void DriverChild::closeOutput() {
    closeFd(outputFd_);
}

std::optional<DriverChild::Status> DriverChild::reap(bool wait) {
    if (status_ || pid_ <= 0) {
        return status_;
    }
    siginfo_t info{};
    int result;
    do {
        result = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | (wait ? 0 : WNOHANG));
    } while (result < 0 && errno == EINTR);
    if (result < 0 || info.si_pid != pid_) {
        return std::nullopt;
    }
    const bool signaled = info.si_code == CLD_KILLED || info.si_code == CLD_DUMPED;
    status_ = Status{signaled, info.si_status};
    return status_;
}

std::optional<DriverChild::Status> DriverChild::poll() {
    return reap(false);
}

DriverChild::Status DriverChild::kill() {
    if (running()) {
        // The group takes the driver's running pings along.
        ::kill(-pid_, SIGKILL);
        ::kill(pid_, SIGKILL);
    }
    // Only a child that is already gone can leave no status.
    return reap(true).value_or(Status{true, SIGKILL});
}

std::string DriverChild::Status::describe() const {
    if (signaled) {
        return "killed by signal " + std::to_string(code) + " (" + ::strsignal(code) + ")";
    }
    return "exit status " + std::to_string(code);
}

int DriverChild::Status::asExitStatus() const {
    return signaled ? 128 + code : code;
}

}  // namespace sim
