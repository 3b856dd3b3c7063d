#pragma once

#include <sys/types.h>
#include <termios.h>

namespace sim {

// The last line of defence for a simulator that crashes or aborts: a handler for the fatal
// signals that kills the driver's process group and puts the terminal back, with
// async-signal-safe calls only, then lets the signal take its course.
class CrashGuard {
public:
    static void install();
    static void watchChild(pid_t pid);
    static void forgetChild();
    // The terminal to restore, and whether the cursor must be shown again.
    static void watchTerminal(int fd, const termios& saved, bool cursorHidden);
    static void forgetTerminal();
};

}  // namespace sim
