#include "Tmux.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace testsupport {

namespace {

std::string quoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

}  // namespace

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
    return std::system("tmux -V >/dev/null 2>&1") == 0;
}

std::string Tmux::run(const std::string& arguments) const {
    const std::string line = "tmux -f /dev/null -L " + socket_ + " " + arguments;
    FILE* pipe = ::popen(line.c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run " + line);
    }
    std::string out;
    std::array<char, 4096> buffer{};
    std::size_t got = 0;
    while ((got = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) {
        out.append(buffer.data(), got);
    }
    ::pclose(pipe);
    return out;
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
