#include "Tmux.h"

#include <unistd.h>

#include <atomic>
#include <sstream>
#include <thread>

#include "RunCommand.h"

namespace testsupport {

static std::string quoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

Tmux::Tmux(const std::string& command, int columns, int lines) {
    static std::atomic<int> count{0};
    socket_ = "arp-test-" + std::to_string(::getpid()) + "-" + std::to_string(count++);
    run("new-session -d -x " + std::to_string(columns) + " -y " + std::to_string(lines) + " " +
        quoted(command));
}

Tmux::~Tmux() {
    run("kill-server 2>/dev/null");
}

bool Tmux::available() {
    return runCommand("tmux -V >/dev/null 2>&1").status == 0;
}

std::string Tmux::run(const std::string& arguments) const {
    return runCommand("tmux -f /dev/null -L " + socket_ + " " + arguments).output;
}

std::vector<std::string> Tmux::screen() const {
    std::vector<std::string> lines;
    std::istringstream text(run("capture-pane -p"));
    for (std::string line; std::getline(text, line);) {
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(line);
    }
    return lines;
}

void Tmux::keys(const std::string& keys) const {
    run("send-keys " + quoted(keys));
}

bool Tmux::waitFor(const std::string& text, std::chrono::milliseconds limit) const {
    const auto until = std::chrono::steady_clock::now() + limit;
    do {
        for (const std::string& line : screen()) {
            if (line.find(text) != std::string::npos) {
                return true;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    } while (std::chrono::steady_clock::now() < until);
    return false;
}

}  // namespace testsupport
