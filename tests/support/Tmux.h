#pragma once

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "DriverProcess.h"

namespace testsupport {

// A command in a terminal of a known size: a tmux server of its own, started with this
// process's environment, and killed with everything in it when the object goes.
class Tmux {
public:
    Tmux(const std::string& command, int columns, int lines) {
        static std::atomic<int> count{0};
        socket_ = "arp-test-" + std::to_string(::getpid()) + "-" + std::to_string(count++);
        run({"new-session", "-d", "-x", std::to_string(columns), "-y", std::to_string(lines),
             command});
    }
    ~Tmux() { run({"kill-server"}); }
    Tmux(const Tmux&) = delete;
    Tmux& operator=(const Tmux&) = delete;

    static bool available() { return DriverProcess::shell("command -v tmux").first == 0; }
    // What the terminal shows, a string per line, without trailing blanks.
    std::vector<std::string> screen() const {
        std::vector<std::string> lines;
        std::istringstream text(run({"capture-pane", "-p"}));
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line.erase(line.find_last_not_of(' ') + 1));
        }
        return lines;
    }
    void keys(const std::string& keys) const { run({"send-keys", keys}); }
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
    // tmux itself, not through a shell: the arguments need no quoting.
    std::string run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"-f", "/dev/null", "-L", socket_});
        DriverProcess tmux(arguments, "tmux");
        tmux.waitForExit(std::chrono::seconds(10));
        return tmux.output();
    }

    std::string socket_;
};

}  // namespace testsupport
