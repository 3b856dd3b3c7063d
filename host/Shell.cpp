#include "host/Shell.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <utility>

#include "host/ChildProcess.h"
#include "host/Deadline.h"
#include "host/IOException.h"
#include "host/ShellNotRunningException.h"

namespace host {

namespace {

// A child flooding its pipe must not starve the rest of the pump.
constexpr std::size_t kReadPerTurn = 1 << 20;
constexpr std::int64_t kCouldNotStart = 127;

}  // namespace

struct Shell::Child {
    ChildProcess process;
    EventPump::WatchId outputWatch = 0;
    EventPump::WatchId exitWatch = 0;
    std::string bytes;     // everything this child wrote
    bool mirrored = true;  // its output still goes to Result as it comes

    Child(const std::vector<std::string>& argv, const ChildProcess::Options& options)
        : process(argv, options) {}
    // The watches go before the descriptors close; a child still running is killed and reaped.
    ~Child() {
        closeOutput();
        if (exitWatch != 0) {
            EventPump::instance().unwatch(exitWatch);
        }
    }

    void closeOutput() {
        if (outputWatch != 0) {
            EventPump::instance().unwatch(std::exchange(outputWatch, 0));
        }
        process.closeOutput();
    }
};

Shell::Shell() = default;

Shell::~Shell() = default;

void Shell::Execute(const String& command) {
    start({"/bin/sh", "-c", command.bytes()}, false);
}

void Shell::Execute(const String& executable, const String& parameters) {
    std::vector<std::string> argv{executable.bytes()};
    const std::string& text = parameters.bytes();
    std::size_t at = 0;
    while ((at = text.find_first_not_of(" \t", at)) != std::string::npos) {
        std::size_t end = std::min(text.find_first_of(" \t", at), text.size());
        argv.push_back(text.substr(at, end - at));
        at = end;
    }
    start(argv, true);
}

void Shell::executeArguments(const String& executable, const Array<String>& arguments) {
    std::vector<std::string> argv{executable.bytes()};
    for (const String& argument : arguments) {
        argv.push_back(argument.bytes());
    }
    start(argv, true);
}

String Shell::ReadAll() {
    String unread(result_.bytes().substr(unread_));
    unread_ = result_.size();
    return unread;
}

void Shell::Write(const String& text) {
    if (children_.empty()) {
        throw ShellNotRunningException(String("no child process is running"));
    }
    children_.back()->process.writeInput(text.view());
}

void Shell::WriteLine(const String& text) {
    Write(text + String("\n"));
}

void Shell::Close() {
    for (const auto& child : children_) {
        child->process.sendKill();
    }
}

void Shell::waitWhileRunning(std::int64_t milliseconds) {
    const Deadline deadline = Deadline::in(std::chrono::milliseconds(milliseconds));
    std::vector<pollfd> running;
    for (const auto& child : children_) {
        running.push_back({child->process.pidfd(), POLLIN, 0});
    }
    while (!running.empty() && !deadline.passed()) {
        const int ready = ::poll(running.data(), running.size(), deadline.pollTimeout());
        if (ready < 0 && errno != EINTR) {
            return;
        }
        // A pidfd stays readable once its child has ended: only the others are waited for.
        std::erase_if(running, [](const pollfd& fd) { return fd.revents != 0; });
    }
}

void Shell::Poll() {
    auto self = weak_from_this().lock();
    // Ids first: serving an exit removes its child from the list.
    std::vector<EventPump::WatchId> watches;
    for (const auto& child : children_) {
        watches.push_back(child->outputWatch);
        watches.push_back(child->exitWatch);
    }
    for (EventPump::WatchId id : watches) {
        EventPump::instance().serviceNow(id);
    }
}

void Shell::start(const std::vector<std::string>& argv, bool searchPath) {
    const bool async = Mode != 0;
    std::shared_ptr<Shell> self;
    if (async) {
        self = weak_from_this().lock();
        if (!self) {
            throw RuntimeException(String("an asynchronous Shell must be owned by a Ref"));
        }
    }
    result_ = String();
    unread_ = 0;
    errorCode_ = -1;
    // Result now belongs to this run; children still running keep their output to themselves.
    for (const auto& other : children_) {
        other->mirrored = false;
    }

    auto child = std::make_unique<Child>(
        argv, ChildProcess::Options{.searchPath = searchPath, .withInput = async});
    if (!child->process.running()) {
        errorCode_ = kCouldNotStart;
        if (async) {
            // Still one completion per Execute: whoever counts running children counts this one.
            EventPump::instance().post([this] { Event_Completed(); }, self);
        }
        return;
    }
    if (async) {
        watchChild(*children_.emplace_back(std::move(child)), self);
    } else {
        // Local: if the wait fails, unwinding kills and reaps the child.
        waitFor(*child);
    }
}

void Shell::waitFor(Child& child) {
    bool exited = false;
    while (!exited) {
        // A closed output is -1, which poll() skips.
        std::array<pollfd, 2> fds{
            {{child.process.pidfd(), POLLIN, 0}, {child.process.output(), POLLIN, 0}}};
        if (::poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            int error = errno;
            throw IOException(String(std::string("poll: ") + std::strerror(error)), error);
        }
        if (fds[1].revents != 0) {
            collect(child, SIZE_MAX);
        }
        exited = fds[0].revents != 0;
    }
    finish(child);
}

void Shell::watchChild(Child& child, const std::shared_ptr<Shell>& self) {
    EventPump& pump = EventPump::instance();
    // The record unwatches both before it goes, so neither handler outlives it.
    child.outputWatch = pump.watch(
        child.process.output(), POLLIN, [this, &child](short) { collect(child, kReadPerTurn); },
        self);
    // The pidfd reports the exit at once, not at the end of a pump slice.
    child.exitWatch = pump.watch(
        child.process.pidfd(), POLLIN, [this, &child](short) { onExit(child); }, self);
}

void Shell::collect(Child& child, std::size_t limit) {
    const std::size_t before = child.bytes.size();
    const bool ended = child.process.readOutput(child.bytes, limit);
    if (child.mirrored) {
        result_.bytes().append(child.bytes, before);
    }
    if (ended) {
        child.closeOutput();
    }
}

void Shell::onExit(Child& child) {
    finish(child);
    auto it = std::find_if(children_.begin(), children_.end(),
                           [&child](const auto& entry) { return entry.get() == &child; });
    children_.erase(it);
    // Both watches are gone: the pump's reference ends with this handler.
    Event_Completed();
}

void Shell::finish(Child& child) {
    // A grandchild may hold the pipe open: read only what the child left in it.
    if (child.process.output() >= 0) {
        collect(child, SIZE_MAX);
        child.closeOutput();
    }
    // Only a host that ignores SIGCHLD loses the status: the kernel has reaped the child.
    const auto status = child.process.poll();
    errorCode_ = status ? status->asExitStatus() : -1;
    if (!child.mirrored) {
        result_ = String(std::move(child.bytes));
        unread_ = 0;
    }
    for (const auto& other : children_) {
        other->mirrored = false;
    }
}

}  // namespace host
