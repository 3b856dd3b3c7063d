#pragma once

#include <termios.h>

namespace sim {

// Single keys without echo on the terminal of standard input, and the cursor hidden when the
// table is drawn; both put back when the object goes, and by CrashGuard on a crash. Signals
// keep their keys, so Ctrl-C stays a signal.
class RawTerminal {
public:
    RawTerminal(int fd, bool hideCursor);
    ~RawTerminal();
    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;

private:
    int fd_;
    bool hideCursor_;
    bool active_ = false;
    termios saved_{};
};

}  // namespace sim
