#include "tools/sim/RawTerminal.h"

#include <unistd.h>

#include <cstdio>

#include "tools/sim/CrashGuard.h"

namespace sim {

RawTerminal::RawTerminal(int fd, bool hideCursor) : fd_(fd), hideCursor_(hideCursor) {
    if (::tcgetattr(fd_, &saved_) != 0) {
        return;
    }
    termios raw = saved_;
    raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    CrashGuard::watchTerminal(fd_, saved_, hideCursor_);
    active_ = ::tcsetattr(fd_, TCSANOW, &raw) == 0;
    if (active_ && hideCursor_) {
        std::fputs("\x1b[?25l", stdout);
        std::fflush(stdout);
    }
}

RawTerminal::~RawTerminal() {
    if (!active_) {
        CrashGuard::forgetTerminal();
        return;
    }
    if (hideCursor_) {
        std::fputs("\x1b[?25h", stdout);
        std::fflush(stdout);
    }
    ::tcsetattr(fd_, TCSANOW, &saved_);
    CrashGuard::forgetTerminal();
}

}  // namespace sim
