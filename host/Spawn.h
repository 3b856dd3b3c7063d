#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

// Starting a child process, cheaply. The child borrows our memory and a stack of ours until it
// has called exec (as a vfork does), so nothing is copied and nothing is mapped per child, and
// the kernel hands back a pidfd with the pid.
namespace host::Spawn {

struct Started {
    pid_t pid = -1;
    int pidfd = -1;  // close-on-exec
};

// Runs the program at `path` with argv and `environment` ("NAME=value" each), with standard input
// from `input` and standard output and error into `output`; signals the child's default, none
// blocked, SIGPIPE back to default. Returns a pid of -1 when nothing runs: the process could not be
// made or the exec failed, and in the latter case the child has been reaped.
Started start(const std::string& path, const std::vector<std::string>& argv,
              const std::vector<std::string>& environment, int input, int output);

// Our environment with LC_ALL=C and without LANGUAGE: a child prints the same words and numbers
// whatever the locale of the user who started us, so that what it says can be parsed.
std::vector<std::string> toolEnvironment();

// The first of the colon-separated folders that holds an executable `name`; a name with a slash
// stands for itself. Empty when none does.
std::string findExecutable(std::string_view folders, const std::string& name);

}  // namespace host::Spawn
