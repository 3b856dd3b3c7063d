#pragma once

#include <string>

namespace testsupport {

struct CommandOutcome {
    int status;  // as pclose() gives it; 0 is success
    std::string output;
};

// Runs a command line through the shell and reads its standard output to the end.
CommandOutcome runCommand(const std::string& line);

}  // namespace testsupport
