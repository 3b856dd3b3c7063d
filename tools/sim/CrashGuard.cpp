#include "tools/sim/CrashGuard.h"

#include <unistd.h>

#include <csignal>
#include <initializer_list>
#include <string_view>

namespace sim {

namespace {

volatile sig_atomic_t gChild = 0;
volatile sig_atomic_t gTerminalFd = -1;
volatile sig_atomic_t gCursorHidden = 0;
termios gSaved{};

constexpr std::string_view kShowCursor = "\x1b[?25h\r\n";

void onFatalSignal(int signal) {
    if (gChild > 0) {
        ::kill(-gChild, SIGKILL);
        ::kill(gChild, SIGKILL);
    }
    if (gTerminalFd >= 0) {
        ::tcsetattr(gTerminalFd, TCSANOW, &gSaved);
        if (gCursorHidden != 0) {
            [[maybe_unused]] ssize_t ignored = ::write(1, kShowCursor.data(), kShowCursor.size());
        }
    }
    // The handler was reset on entry, so this ends the process as the signal would have.
    ::raise(signal);
}

}  // namespace

void CrashGuard::install() {
    struct sigaction action {};
    action.sa_handler = onFatalSignal;
    action.sa_flags = SA_RESETHAND | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    for (int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGQUIT}) {
        ::sigaction(signal, &action, nullptr);
    }
}

void CrashGuard::watchChild(pid_t pid) {
    gChild = pid;
}

void CrashGuard::forgetChild() {
    gChild = 0;
}

void CrashGuard::watchTerminal(int fd, const termios& saved, bool cursorHidden) {
    gTerminalFd = -1;
    gSaved = saved;
    gCursorHidden = cursorHidden ? 1 : 0;
    gTerminalFd = fd;
}

void CrashGuard::forgetTerminal() {
    gTerminalFd = -1;
}

}  // namespace sim
