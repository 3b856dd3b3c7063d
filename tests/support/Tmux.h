#pragma once

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "RunCommand.h"

namespace testsupport {

// A command in a terminal of a known size: a tmux server of its own, started with this
// process's environment, and killed with everything in it when the object goes.
class Tmux {
public:
    Tmux(const std::string& command, int columns, int lines) {
        static std::atomic<int> count{0};
        socket_ = "arp-test-" + std::to_string(::getpid()) + "-" + std::to_string(count++);
        run("new-session -d -x " + std::to_string(columns) + " -y " + std::to_string(lines) + " " +
            quoted(command));
    }
    ~Tmux() { run("kill-server 2>/dev/null"); }
    Tmux(const Tmux&) = delete;
    Tmux& operator=(const Tmux&) = delete;

    static bool available() { return runCommand("tmux -V >/dev/null 2>&1").status == 0; }
    // What the terminal shows, a string per line, without trailing blanks.
    std::vector<std::string> screen() const {
        std::vector<std::string> lines;
        std::istringstream text(run("capture-pane -p"));
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line.erase(line.find_last_not_of(' ') + 1));
        }
        return lines;
    }
    void keys(const std::string& keys) const { run("send-keys " + quoted(keys)); }
    // Waits until a line of the screen contains `text`.
    bool waitFor(const std::string& text, std::chrono::milliseconds limit) const {
        const auto shows = [&text](const std::string& line) {
            return line.find(text) != std::string::npos;
        };
        for (const auto until = std::chrono::steady_clock::now() + limit;
             !std::ranges::any_of(screen(), shows);
             std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
            if (std::chrono::steady_clock::now() >= until) {
                return false;
            }
        }
        return true;
    }

private:
    static std::string quoted(const std::string& text) {
        std::string out = "'";
        for (const char c : text) {
            out += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        return out + "'";
    }
    std::string run(const std::string& arguments) const {
        return runCommand("tmux -f /dev/null -L " + socket_ + " " + arguments).output;
    }

    std::string socket_;
};

}  // namespace testsupport
