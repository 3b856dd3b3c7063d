#include "host/Shell.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/Deadline.h"
#include "host/IOException.h"
#include "host/ShellNotRunningException.h"
#include "host/Spawn.h"
#include "host/UniqueFd.h"

namespace host {

namespace {

// A child flooding its pipe must not starve the rest of the pump.
constexpr std::size_t kReadPerTurn = 1 << 20;
constexpr std::int64_t kCouldNotStart = 127;

void pidfdKill(int pidfd) {
    ::syscall(SYS_pidfd_send_signal, pidfd, SIGKILL, nullptr, 0);
}

// Only for fresh pipe ends, which carry no other status flag.
bool setNonBlocking(int fd) {
    return ::fcntl(fd, F_SETFL, O_NONBLOCK) == 0;
}

// Reads what the pipe holds, up to `limit` bytes; true once no writer is left.
bool readPipe(int fd, std::string& into, std::size_t limit) {
    std::array<char, std::size_t{16} * 1024> buffer;  // filled by read(), so left uninitialised
    std::size_t total = 0;
    while (total < limit) {
        ssize_t count = ::read(fd, buffer.data(), buffer.size());
        if (count > 0) {
            into.append(buffer.data(), static_cast<std::size_t>(count));
            total += static_cast<std::size_t>(count);
            continue;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        // The end, or a broken pipe, which reads as its end; only an empty pipe is not.
        return count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
    }
    return false;
}

// Non-blocking: a child that does not read loses what does not fit in the pipe. A host that
// does not ignore SIGPIPE must not die because a child closed its input, so the signal is
// blocked around the write and the one it raised is taken back.
void writeQuietly(int fd, std::string_view bytes) {
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    std::size_t written = 0;
    int error = 0;
    while (written < bytes.size()) {
        ssize_t count = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            error = errno;
            break;
        }
    }
    if (error == EPIPE) {
        timespec now{};
        while (sigtimedwait(&pipeSignal, nullptr, &now) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

std::int64_t exitCode(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

struct Shell::Child {
    pid_t pid = -1;
    UniqueFd pidfd;
    UniqueFd output;  // our end of the child's stdout and stderr
    UniqueFd input;   // our end of the child's stdin, mode 1 only
    EventPump::WatchId outputWatch = 0;
    EventPump::WatchId exitWatch = 0;
    std::string bytes;     // everything this child wrote
    bool mirrored = true;  // its output still goes to Result as it comes

    Child() = default;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    bool spawn(const std::vector<std::string>& argv, bool searchPath, bool withInput);
    void closeOutput();
    std::int64_t reap();
};

Shell::Child::~Child() {
    closeOutput();
    if (exitWatch != 0) {
        EventPump::instance().unwatch(exitWatch);
    }
    // Destroyed while still running: kill it and wait, so that no zombie stays behind.
    if (pid > 0) {
        pidfdKill(pidfd.get());
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

// False when the child could not be started; nothing runs then, and the destructor closes what
// was opened.
bool Shell::Child::spawn(const std::vector<std::string>& argv, bool searchPath, bool withInput) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return false;
    }
    output = UniqueFd(ends[0]);
    UniqueFd childOutput(ends[1]);
    // Only our end: the child's end stays blocking, as programs expect of their output.
    if (!setNonBlocking(output.get())) {
        return false;
    }
    UniqueFd childInput;
    if (withInput) {
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            return false;
        }
        childInput = UniqueFd(ends[0]);
        input = UniqueFd(ends[1]);
        if (!setNonBlocking(input.get())) {
            return false;
        }
    } else {
        childInput = UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!childInput) {
            return false;
        }
    }

    const char* searchFolders = std::getenv("PATH");
    const std::string path =
        searchPath ? Spawn::findExecutable(
                         searchFolders != nullptr ? searchFolders : "/bin:/usr/bin", argv.front())
                   : argv.front();
    if (path.empty()) {
        return false;
    }
    const Spawn::Started started =
        Spawn::start(path, argv, Spawn::toolEnvironment(), childInput.get(), childOutput.get());
    if (started.pid < 0) {
        return false;
    }
    pid = started.pid;
    pidfd = UniqueFd(started.pidfd);
    return true;
}

void Shell::Child::closeOutput() {
    if (outputWatch != 0) {
        EventPump::instance().unwatch(outputWatch);
        outputWatch = 0;
    }
    output.reset();
}

// Called once the pidfd has reported the exit, so WNOHANG finds the zombie.
std::int64_t Shell::Child::reap() {
    if (exitWatch != 0) {
        EventPump::instance().unwatch(exitWatch);
        exitWatch = 0;
    }
    int status = 0;
    pid_t reaped;
    do {
        reaped = ::waitpid(pid, &status, WNOHANG);
    } while (reaped < 0 && errno == EINTR);
    pid = -1;
    pidfd.reset();
    input.reset();
    // Only a host that ignores SIGCHLD loses the status: the kernel has reaped the child.
    return reaped > 0 ? exitCode(status) : -1;
}

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
    writeQuietly(children_.back()->input.get(), text.view());
}

void Shell::WriteLine(const String& text) {
    Write(text + String("\n"));
}

void Shell::Close() {
    for (const auto& child : children_) {
        pidfdKill(child->pidfd.get());
    }
}

void Shell::waitWhileRunning(std::int64_t milliseconds) {
    const Deadline deadline = Deadline::in(std::chrono::milliseconds(milliseconds));
    std::vector<pollfd> running;
    for (const auto& child : children_) {
        running.push_back({child->pidfd.get(), POLLIN, 0});
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

    auto child = std::make_unique<Child>();
    if (!child->spawn(argv, searchPath, async)) {
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
            {{child.pidfd.get(), POLLIN, 0}, {child.output.get(), POLLIN, 0}}};
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
    const pid_t pid = child.pid;
    // By pid, not by reference: the record is gone once the child has been reaped.
    child.outputWatch = pump.watch(
        child.output.get(), POLLIN,
        [this, pid](short) {
            if (Child* running = findChild(pid)) {
                collect(*running, kReadPerTurn);
            }
        },
        self);
    // The pidfd reports the exit at once, not at the end of a pump slice.
    child.exitWatch = pump.watch(
        child.pidfd.get(), POLLIN,
        [this, pid](short) {
            if (Child* running = findChild(pid)) {
                onExit(*running);
            }
        },
        self);
}

void Shell::collect(Child& child, std::size_t limit) {
    const std::size_t before = child.bytes.size();
    bool ended = readPipe(child.output.get(), child.bytes, limit);
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
    if (child.output) {
        collect(child, SIZE_MAX);
        child.closeOutput();
    }
    errorCode_ = child.reap();
    if (!child.mirrored) {
        result_ = String(std::move(child.bytes));
        unread_ = 0;
    }
    for (const auto& other : children_) {
        other->mirrored = false;
    }
}

Shell::Child* Shell::findChild(pid_t pid) {
    for (const auto& child : children_) {
        if (child->pid == pid) {
            return child.get();
        }
    }
    return nullptr;
}

}  // namespace host
