#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "tools/sim/ControllerMessages.h"
#include "tools/sim/Simulator.h"

namespace sim {

namespace {

std::string secondsText(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", seconds);
    return text.data();
}

}  // namespace

void Simulator::readKeys() {
    std::array<char, 64> keys{};
    const ssize_t got = ::read(keyboard_, keys.data(), keys.size());
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
        keyboard_ = -1;  // the terminal has gone
        return;
    }
    for (ssize_t i = 0; i < got && !exitStatus_; ++i) {
        key(keys[static_cast<std::size_t>(i)]);
    }
}

void Simulator::key(char c) {
    switch (c) {
        case 'p':
            if (send(ControllerMessages::ping())) {
                pingSentAt_ = now();
                notice("sent ping");
            }
            break;
        case 'd':
            if (send(ControllerMessages::debug(!debugOn_))) {
                debugOn_ = !debugOn_;
                notice(std::string("sent debug ") + (debugOn_ ? "true" : "false"));
            }
            break;
        case 'D':
            // The driver starts with debug mode off, so its state can be followed here.
            if (send(ControllerMessages::toggleDebug())) {
                debugOn_ = !debugOn_;
                notice("sent control message D");
            }
            break;
        case 'c':
        case 'q':
            askToClose("key " + std::string(1, c));
            break;
        default:
            break;
    }
}

void Simulator::takeSignals() {
    while (const auto signal = signals_.take()) {
        if (*signal == SIGWINCH) {
            continue;  // the next show measures the terminal again
        }
        const std::string why = std::string("got SIG") + ::sigabbrev_np(*signal);
        if (phase_ == Phase::Linked) {
            askToClose(why);
        } else {
            stopDriver(why);
            return;
        }
    }
}

void Simulator::checkDeadlines() {
    const double t = now();
    if (phase_ == Phase::Connecting && t >= connectBy_) {
        stopDriver("the driver did not connect within " + secondsText(kConnectSeconds) + " s");
    } else if (closeBy_ && t >= *closeBy_) {
        stopDriver("the driver was still running " + secondsText(closeWait_) + " s after close");
    } else if (runUntil_ && t >= *runUntil_) {
        runUntil_.reset();
        askToClose("--for " + secondsText(options_.runSeconds) + " s are over");
    }
}

void Simulator::askToClose(const std::string& why) {
    if (phase_ == Phase::Connecting) {
        stopDriver(why + ", and the driver is not connected");
    } else if (phase_ == Phase::Linked) {
        send(ControllerMessages::close());
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
    closeBy_ = now() + closeWait_;
    notice("waiting up to " + secondsText(closeWait_) + " s for the driver to end");
}

void Simulator::stopDriver(const std::string& why) {
    const DriverChild::Status status = driver_->kill();
    finish(1, why + ": killed the driver (" + status.describe() + "); exit status 1");
}

void Simulator::driverEnded() {
    const auto status = driver_->poll();
    if (!status) {
        return;
    }
    // What it wrote before it ended is shown before its end.
    while (client_ >= 0 && readLink()) {
    }
    while (driver_->outputFd() >= 0 && readDriverOutput()) {
    }
    driverSays(std::move(driverOutput_));
    driverOutput_.clear();
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
