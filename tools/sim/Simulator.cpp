#include "tools/sim/Simulator.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "host/ExceptionWrapper.h"
#include "scan/SweepTiming.h"
#include "tools/sim/Printable.h"

namespace sim {

namespace {

constexpr double kConnectSeconds = 20;
// After "close" the driver may finish the sweep under way (a sweep stops waiting for its fill
// at a close): a round of pings for every round's worth of hosts beyond the first, then its
// last events before it ends; 4 s more for a busy machine.
constexpr double kCloseBaseSeconds = SweepTiming::kLastEventsMilliseconds / 1000.0 + 4;
// The first sweep's hosts are reported only as their pings end, so until then a driver may be
// busy with more hosts than it has reported: at least this many are assumed, as on a home LAN.
constexpr std::size_t kLeastHostsAssumed = 24;

// How long a driver that watches `hosts` hosts may take to end after "close".
double closeSeconds(std::size_t hosts) {
    constexpr auto kRound = static_cast<std::size_t>(SweepTiming::kMostPings);
    const std::size_t beyondFirstRound = hosts > kRound ? hosts - kRound : 0;
    const std::size_t rounds = (beyondFirstRound + kRound - 1) / kRound;  // whole rounds
    return kCloseBaseSeconds + SweepTiming::kProbeSeconds * static_cast<double>(rounds);
}

std::string secondsText(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", seconds);
    return text.data();
}

host::Deadline after(double seconds) {
    return host::Deadline::in(std::chrono::milliseconds(std::llround(seconds * 1000)));
}

// A multi-packet with the verb under "mcmd" and at most one more pair.
std::string message(const char* verb, const char* key = nullptr, const host::String& value = {}) {
    auto cmd = host::New<cAmbrelisCommand>();
    cmd->Constructor();
    cmd->SetMulti("mcmd", verb);
    if (key != nullptr) {
        cmd->SetMulti(key, value);
    }
    return cmd->GetRawCommand().bytes();
}

}  // namespace

std::string Simulator::setUnitsPacket(const UnitList& units) {
    return message("setUnits", "DATA", units.toData());
}

Simulator::Simulator(const SimOptions& options, std::string setUnitsPacket)
    : options_(options),
      setUnitsPacket_(std::move(setUnitsPacket)),
      table_(options.units, options.logLines) {
    if (::isatty(STDOUT_FILENO) == 1) {
        screen_.emplace(table_, clock_);
    }
    // Ctrl-C and the like are taken as events; the driver unblocks them for itself.
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) {
        sigaddset(&set, signal);
    }
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    signals_ = host::UniqueFd(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals_) {
        throw std::runtime_error(std::string("cannot watch signals: ") + std::strerror(errno));
    }
    watch(kSignals, signals_.get(), [this](short) { readSignals(); });
    if (::isatty(STDIN_FILENO) != 1) {
        return;
    }
    watch(kKeys, STDIN_FILENO, [this](short) { readKeys(); });
    // Single keys without echo; signals keep their keys, so Ctrl-C stays a signal.
    termios saved{};
    if (::tcgetattr(STDIN_FILENO, &saved) != 0) {
        return;
    }
    termios raw = saved;
    raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    if (::tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0) {
        savedTerminal_ = saved;
        if (screen_) {
            std::fputs("\x1b[?25l", stdout);
        }
    }
}

Simulator::~Simulator() {
    for (int source = 0; source < kSources; ++source) {
        unwatch(static_cast<Source>(source));
    }
    host::ExceptionWrapper::setHandler(nullptr);
    if (screen_) {
        // The last picture stays on screen; what follows goes below it.
        std::fputs("\n", stdout);
    }
    if (savedTerminal_) {
        if (screen_) {
            std::fputs("\x1b[?25h", stdout);
        }
        ::tcsetattr(STDIN_FILENO, TCSANOW, &*savedTerminal_);
    }
    std::fflush(stdout);
}

void Simulator::watch(Source source, int fd, host::EventPump::Handler handler) {
    watches_[source] = host::EventPump::instance().watch(fd, POLLIN, std::move(handler));
}

void Simulator::unwatch(Source source) {
    host::EventPump::instance().unwatch(std::exchange(watches_[source], 0));
}

double Simulator::now() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Simulator::event(const std::string& line) {
    if (!screen_) {
        std::printf("%.1fs %s\n", now(), line.c_str());
    }
}

void Simulator::notice(const std::string& text) {
    event(text);
    table_.addLog("sim: " + text);
}

void Simulator::finish(int exitStatus, const std::string& text) {
    notice(text);
    for (int source = 0; source < kSources; ++source) {
        unwatch(static_cast<Source>(source));
    }
    exitStatus_ = exitStatus;
    finalText_ = text;
}

int Simulator::run() {
    // What a handler throws ends the run here, as what the loop itself throws does.
    host::ExceptionWrapper::setHandler([this](const host::RuntimeException& failure) {
        failure_ = failure.what();
        return true;
    });
    listen();
    const std::string path = options_.driverToStart();
    driver_.emplace(
        std::vector<std::string>{path, "sim", "127.0.0.1", std::to_string(port_),
                                 options_.connectionId},
        host::ChildProcess::Options{
            .searchPath = false, .toolEnvironment = false, .ownGroup = true, .dieWithUs = true});
    if (driver_->startError() != 0) {
        throw std::runtime_error("cannot start " + path + ": " +
                                 std::strerror(driver_->startError()));
    }
    notice("started " + Printable::of(path) + " (pid " + std::to_string(driver_->pid()) + ")");
    watch(kOutput, driver_->output(), [this](short) { readDriverOutput(); });
    watch(kEnded, driver_->pidfd(), [this](short) { driverEnded(); });
    connectBy_ = after(kConnectSeconds);
    if (options_.runSeconds > 0) {
        runUntil_ = after(options_.runSeconds);
    }
    const auto show = [this] {
        if (screen_) {
            screen_->show(now(), status());
        }
        std::fflush(stdout);
    };
    while (!exitStatus_) {
        show();
        host::EventPump::instance().runOnce(timeoutMs());
        if (!failure_.empty()) {
            throw std::runtime_error(failure_);
        }
        if (!exitStatus_) {
            checkDeadlines();
        }
        for (const std::string& line : clock_.takeSummaries(now())) {
            notice(line);
        }
    }
    // The last picture, with the outcome in its status, stays on screen.
    show();
    return *exitStatus_;
}

std::string Simulator::status() const {
    const auto whole = [](double seconds) {
        return std::to_string(static_cast<long>(std::ceil(std::max(0.0, seconds)))) + "s";
    };
    const double t = now();
    const char* phase = exitStatus_                   ? "ended"
                        : phase_ == Phase::Connecting ? "waiting for it to connect"
                        : phase_ == Phase::Linked     ? "linked"
                                                      : "closing";
    std::string first = SimOptions::versionText() + "  port " + std::to_string(port_) +
                        "  driver pid " + (driver_ ? std::to_string(driver_->pid()) : "-") + ", " +
                        phase + "  up " + std::to_string(static_cast<long>(t)) + "s";
    const std::string debug = std::string("   debug ") + (debugOn_ ? "on" : "off");
    std::string second;
    if (exitStatus_) {
        second = finalText_;
    } else if (closeBy_) {
        const double left = std::chrono::duration<double>(closeBy_->at() - Clock::now()).count();
        second = "close sent: the driver may finish its sweep first; waiting up to " +
                 whole(closeWait_) + " (" + whole(left) + " left)";
    } else if (const auto next = clock_.nextIn(t)) {
        second = "sweep " + std::to_string(clock_.sweepAt(t)) + ", next in " + whole(*next) + debug;
    } else {
        second = "no sweep yet: it starts when the driver asks for its units" + debug;
    }
    return first + "\n" + second;
}

int Simulator::timeoutMs() const {
    std::optional<Clock::time_point> next;
    for (const auto& deadline : {connectBy_, runUntil_, closeBy_}) {
        if (deadline && (!next || deadline->at() < *next)) {
            next = deadline->at();
        }
    }
    if (screen_ || phase_ == Phase::Linked) {
        // The clocks on screen, and the sweeps' summaries.
        const auto second = start_ + std::chrono::seconds(static_cast<long>(now()) + 1);
        next = std::min(next.value_or(second), second);
    }
    return next ? host::Deadline(*next).pollTimeout() : -1;
}

void Simulator::readKeys() {
    std::array<char, 64> keys{};
    const ssize_t got = ::read(STDIN_FILENO, keys.data(), keys.size());
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
        unwatch(kKeys);  // the terminal has gone
        return;
    }
    for (ssize_t i = 0; i < got && !exitStatus_; ++i) {
        key(keys[static_cast<std::size_t>(i)]);
    }
}

void Simulator::key(char c) {
    if (c == 'p' && send(message("ping"))) {
        pingSentAt_ = now();
        notice("sent ping");
    } else if (c == 'd' && send(message("debug", "Valu", debugOn_ ? "false" : "true"))) {
        debugOn_ = !debugOn_;
        notice(std::string("sent debug ") + (debugOn_ ? "true" : "false"));
    } else if (c == 'D') {
        auto toggle = host::New<cAmbrelisCommand>();
        toggle->Constructor();
        // The control flag sends it down the driver's branch of one-letter commands.
        toggle->SetFlag("&h40");
        toggle->SetCommand("D");
        // The driver starts with debug mode off, so its state can be followed here.
        if (send(toggle->GetRawCommand().bytes())) {
            debugOn_ = !debugOn_;
            notice("sent control message D");
        }
    } else if (c == 'c' || c == 'q') {
        askToClose("key " + std::string(1, c));
    }
}

void Simulator::readSignals() {
    signalfd_siginfo info{};
    while (::read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        if (info.ssi_signo == SIGWINCH) {
            continue;  // the next show measures the terminal again
        }
        const std::string why =
            std::string("got SIG") + ::sigabbrev_np(static_cast<int>(info.ssi_signo));
        if (phase_ != Phase::Linked) {
            stopDriver(why);
            return;
        }
        askToClose(why);
    }
}

void Simulator::checkDeadlines() {
    if (connectBy_ && connectBy_->passed()) {
        stopDriver("the driver did not connect within " + secondsText(kConnectSeconds) + " s");
    } else if (closeBy_ && closeBy_->passed()) {
        stopDriver("the driver was still running " + secondsText(closeWait_) + " s after close");
    } else if (runUntil_ && runUntil_->passed()) {
        runUntil_.reset();
        askToClose("--for " + secondsText(options_.runSeconds) + " s are over");
    }
}

void Simulator::askToClose(const std::string& why) {
    if (phase_ == Phase::Connecting) {
        stopDriver(why + ", and the driver is not connected");
    } else if (phase_ == Phase::Linked) {
        send(message("close"));
        notice("sent close (" + why + ")");
        phase_ = Phase::Closing;
        giveTimeToEnd();
    }
}

void Simulator::giveTimeToEnd() {
    if (closeBy_) {
        return;
    }
    const double t = now();
    std::size_t hosts = table_.rows().size();
    if (clock_.sweepAt(t) == 0) {
        hosts = 0;  // no sweep has started, so none is to be finished
    } else if (clock_.sweepsTold() == 0) {
        hosts = std::max(hosts, kLeastHostsAssumed);
    }
    clock_.stop();
    closeWait_ = closeSeconds(hosts);
    closeBy_ = after(closeWait_);
    notice("waiting up to " + secondsText(closeWait_) + " s for the driver to end");
}

void Simulator::stopDriver(const std::string& why) {
    const host::ChildProcess::Status status = driver_->kill();
    finish(1, why + ": killed the driver (" + status.describe() + "); exit status 1");
}

void Simulator::driverEnded() {
    const auto status = driver_->poll();
    if (!status) {
        return;
    }
    // What it wrote before it ended is shown before its end.
    while (link_ && readLink()) {
    }
    while (driver_->output() >= 0 && readDriverOutput()) {
    }
    driverSays(driverOutput_.take(driverOutput_.size()));
    if (phase_ == Phase::Connecting) {
        // A driver that never connected has failed, whatever its status says.
        finish(1,
               "the driver ended before it connected (" + status->describe() + "); exit status 1");
        return;
    }
    const int exitStatus = status->asExitStatus();
    finish(exitStatus, "the driver ended: " + status->describe() +
                           (status->signaled ? "; exit status " + std::to_string(exitStatus) : ""));
}

}  // namespace sim
