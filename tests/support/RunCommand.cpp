#include "RunCommand.h"

#include <array>
#include <cstdio>

namespace testsupport {

CommandOutcome runCommand(const std::string& line) {
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
