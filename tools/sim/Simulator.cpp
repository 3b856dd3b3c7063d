#include "tools/sim/Simulator.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "tools/sim/CrashGuard.h"
#include "tools/sim/LineDisplay.h"
#include "tools/sim/Printable.h"
#include "tools/sim/TableDisplay.h"

namespace sim {

Simulator::Simulator(const SimOptions& options, std::string driverPath, std::string setUnitsPacket)
    : options_(options),
      driverPath_(std::move(driverPath)),
      setUnitsPacket_(std::move(setUnitsPacket)),
      tableMode_(::isatty(STDOUT_FILENO) == 1),
      table_(options.units, options.logLines),
      listener_(options.port) {
    if (tableMode_) {
        display_ = std::make_unique<TableDisplay>(table_, clock_);
    } else {
        display_ = std::make_unique<LineDisplay>();
    }
    if (::isatty(STDIN_FILENO) == 1) {
        terminal_.emplace(STDIN_FILENO, tableMode_);
        keyboard_ = STDIN_FILENO;
    }
}

Simulator::~Simulator() {
    if (client_ >= 0) {
        ::close(client_);
    }
}

double Simulator::now() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Simulator::notice(const std::string& text) {
    display_->event(now(), text);
    table_.addLog("sim: " + text);
}

double Simulator::closeSeconds(std::size_t hosts) {
    constexpr auto kRound = static_cast<std::size_t>(SweepTiming::kMostPings);
    const std::size_t beyondFirstRound = hosts > kRound ? hosts - kRound : 0;
    const std::size_t rounds = (beyondFirstRound + kRound - 1) / kRound;  // whole rounds
    return kCloseBaseSeconds + SweepTiming::kProbeSeconds * static_cast<double>(rounds);
}

void Simulator::finish(int exitStatus, const std::string& text) {
    notice(text);
    CrashGuard::forgetChild();
    exitStatus_ = exitStatus;
    finalText_ = text;
}

int Simulator::run() {
    notice(
        "listening on 127.0.0.1:" + std::to_string(listener_.port()) +
        (listener_.tookFreePort() ? " (port " + std::to_string(options_.port) + " was busy)" : ""));
    driver_.emplace(std::vector<std::string>{
        driverPath_, "sim", "127.0.0.1", std::to_string(listener_.port()), options_.connectionId});
    CrashGuard::watchChild(driver_->pid());
    notice("started " + Printable::of(driverPath_) + " (pid " + std::to_string(driver_->pid()) +
           ")");
    connectBy_ = now() + kConnectSeconds;
    if (options_.runSeconds > 0) {
        runUntil_ = options_.runSeconds;
    }
    while (!exitStatus_) {
        display_->show(now(), status());
        pollOnce();
    }
    // The last picture, with the outcome in its status, stays on screen.
    display_->show(now(), status());
    display_.reset();
    std::fflush(stdout);
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
    std::string first = SimOptions::versionText() + "  port " + std::to_string(listener_.port()) +
                        "  driver pid " + (driver_ ? std::to_string(driver_->pid()) : "-") + ", " +
                        phase + "  up " + std::to_string(static_cast<long>(t)) + "s";
    std::string second;
    if (exitStatus_) {
        second = finalText_;
    } else if (closeBy_) {
        second = "close sent: the driver may finish its sweep first; waiting up to " +
                 whole(closeWait_) + " (" + whole(*closeBy_ - t) + " left)";
    } else if (const auto next = clock_.nextIn(t)) {
        second = "sweep " + std::to_string(clock_.sweepAt(t)) + ", next in " + whole(*next) +
                 "   debug " + (debugOn_ ? "on" : "off");
    } else {
        second = std::string("no sweep yet: it starts when the driver asks for its units") +
                 "   debug " + (debugOn_ ? "on" : "off");
    }
    return first + "\n" + second;
}

int Simulator::timeoutMs() const {
    std::optional<double> next;
    const auto consider = [&next](double at) { next = next ? std::min(*next, at) : at; };
    if (phase_ == Phase::Connecting) {
        consider(connectBy_);
    }
    if (runUntil_) {
        consider(*runUntil_);
    }
    if (closeBy_) {
        consider(*closeBy_);
    }
    const double t = now();
    if (tableMode_ || phase_ == Phase::Linked) {
        consider(std::floor(t) + 1);  // the clocks on screen, and the sweeps' summaries
    }
    if (!next) {
        return -1;
    }
    return static_cast<int>(std::ceil(std::max(0.0, *next - t) * 1000));
}

void Simulator::pollOnce() {
    enum class Source { Signals, Keys, Listener, Link, Output, Ended };
    std::vector<pollfd> fds;
    std::vector<Source> sources;
    const auto watch = [&](int fd, short events, Source source) {
        if (fd >= 0) {
            fds.push_back(pollfd{fd, events, 0});
            sources.push_back(source);
        }
    };
    watch(signals_.fd(), POLLIN, Source::Signals);
    watch(keyboard_, POLLIN, Source::Keys);
    watch(listener_.fd(), POLLIN, Source::Listener);
    watch(client_, static_cast<short>(POLLIN | (outgoing_.empty() ? 0 : POLLOUT)), Source::Link);
    watch(driver_->outputFd(), POLLIN, Source::Output);
    // Last, so that what the driver wrote before it ended is shown before its end.
    watch(driver_->running() ? driver_->pidfd() : -1, POLLIN, Source::Ended);

    if (::poll(fds.data(), fds.size(), timeoutMs()) < 0) {
        if (errno == EINTR) {
            return;
        }
        throw std::runtime_error(std::string("poll failed: ") + std::strerror(errno));
    }
    for (std::size_t i = 0; i < fds.size() && !exitStatus_; ++i) {
        const short events = fds[i].revents;
        if (events == 0) {
            continue;
        }
        switch (sources[i]) {
            case Source::Signals:
                takeSignals();
                break;
            case Source::Keys:
                readKeys();
                break;
            case Source::Listener:
                acceptDriver();
                break;
            case Source::Link:
                if ((events & POLLOUT) != 0) {
                    writeLink();
                }
                if (client_ >= 0 && (events & (POLLIN | POLLHUP | POLLERR)) != 0) {
                    readLink();
                }
                break;
            case Source::Output:
                readDriverOutput();
                break;
            case Source::Ended:
                driverEnded();
                break;
        }
    }
    if (!exitStatus_) {
        checkDeadlines();
    }
    for (const std::string& line : clock_.takeSummaries(now())) {
        notice(line);
    }
}

}  // namespace sim
