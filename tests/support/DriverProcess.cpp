#include "DriverProcess.h"

#include <poll.h>

#include <array>
#include <cstdint>
#include <stdexcept>

#include "host/Deadline.h"

namespace testsupport {

namespace {

std::vector<std::string> commandLine(const std::string& program,
                                     const std::vector<std::string>& arguments) {
    std::vector<std::string> argv{program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return argv;
}

}  // namespace

DriverProcess::DriverProcess(const std::vector<std::string>& arguments, const std::string& program)
    : child_(commandLine(program, arguments), {.toolEnvironment = false, .dieWithUs = true}) {
    if (child_.startError() != 0) {
        throw std::runtime_error("cannot start " + program);
    }
}

void DriverProcess::readFor(int timeoutMs) {
    // Once it has ended, its pidfd stays readable: only its output is waited for.
    std::array<pollfd, 2> fds{
        {{status_ ? -1 : child_.pidfd(), POLLIN, 0}, {child_.output(), POLLIN, 0}}};
    ::poll(fds.data(), fds.size(), timeoutMs);
    output();
}

std::optional<int> DriverProcess::waitForExit(std::chrono::milliseconds limit) {
    const auto deadline = host::Deadline::in(limit);
    while (!status_) {
        if (const auto ended = child_.poll()) {
            status_ = ended->asExitStatus();
        } else if (deadline.passed()) {
            return std::nullopt;
        } else {
            readFor(deadline.pollTimeout());
        }
    }
    // A child of its own may still write.
    while (child_.output() >= 0) {
        readFor(1000);
    }
    return status_;
}

std::pair<int, std::string> DriverProcess::shell(const std::string& line,
                                                 std::chrono::seconds limit) {
    DriverProcess sh({"-c", line}, "/bin/sh");
    const int status = sh.waitForExit(limit).value_or(-1);
    return {status, sh.output()};
}

const std::string& DriverProcess::output() {
    if (child_.output() >= 0 && child_.readOutput(output_, SIZE_MAX)) {
        child_.closeOutput();
    }
    return output_;
}

}  // namespace testsupport
