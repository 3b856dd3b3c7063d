#include "tools/sim/SignalWatch.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <string>

namespace sim {

SignalWatch::SignalWatch() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) {
        sigaddset(&set, signal);
    }
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    fd_ = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd_ < 0) {
        throw std::runtime_error(std::string("cannot watch signals: ") + std::strerror(errno));
    }
}

SignalWatch::~SignalWatch() {
    ::close(fd_);
}

std::optional<int> SignalWatch::take() const {
    signalfd_siginfo info{};
    if (::read(fd_, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) {
        return std::nullopt;
    }
    return static_cast<int>(info.ssi_signo);
}

}  // namespace sim
