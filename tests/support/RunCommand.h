#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace testsupport {

struct CommandOutcome {
    int status;  // as pclose() gives it; 0 is success
    std::string output;
};

// Runs a command line through the shell and reads its standard output to the end.
inline CommandOutcome runCommand(const std::string& line) {
    FILE* pipe = ::popen(line.c_str(), "r");
    if (pipe == nullptr) {
        return {-1, "cannot run " + line};
    }
    std::string output;
    std::array<char, 4096> buffer{};
    for (std::size_t got; (got = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), got);
    }
    return {::pclose(pipe), output};
}

}  // namespace testsupport
