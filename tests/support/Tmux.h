#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace testsupport {

// A command in a terminal of a known size: a tmux server of its own, started with this
// process's environment, and killed with everything in it when the object goes.
class Tmux {
public:
    Tmux(const std::string& command, int columns, int lines);
    ~Tmux();
    Tmux(const Tmux&) = delete;
    Tmux& operator=(const Tmux&) = delete;

    static bool available();
    // What the terminal shows, a string per line, without trailing blanks.
    std::vector<std::string> screen() const;
    void keys(const std::string& keys) const;
    // Waits until a line of the screen contains `text`.
    bool waitFor(const std::string& text, std::chrono::milliseconds limit) const;

private:
    std::string run(const std::string& arguments) const;

    std::string socket_;
};

}  // namespace testsupport
