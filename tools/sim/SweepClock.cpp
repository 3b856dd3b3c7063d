#include "tools/sim/SweepClock.h"

#include <algorithm>
#include <cmath>

namespace sim {

void SweepClock::unitsAsked(double at) {
    anchor_ = at;
    anchorSweep_ = 1;
}

void SweepClock::logLine(double at, const std::string& text) {
    if (!anchor_ || text != "begin arp scan") {
        return;
    }
    // A start well into the sweep under way is the next one's, come before it was expected.
    const int under = sweepAt(at);
    anchorSweep_ = at - startOf(under) > kPeriodSeconds / 2 ? under + 1 : under;
    anchor_ = at;
}

void SweepClock::reported(double at) {
    reports_[sweepAt(at)] += 1;
}

int SweepClock::sweepAt(double at) const {
    if (!anchor_) {
        return 0;
    }
    const double sweeps = std::floor((at - *anchor_) / kPeriodSeconds);
    return std::max(0, anchorSweep_ + static_cast<int>(sweeps));
}

double SweepClock::startOf(int sweep) const {
    return anchor_.value_or(0) + (sweep - anchorSweep_) * kPeriodSeconds;
}

std::optional<double> SweepClock::nextIn(double at) const {
    if (!anchor_ || stopped_) {
        return std::nullopt;
    }
    return std::max(0.0, startOf(sweepAt(at) + 1) - at);
}

std::vector<std::string> SweepClock::takeSummaries(double at) {
    std::vector<std::string> lines;
    while (anchor_ && told_ + 1 <= sweepAt(at) && at >= startOf(told_ + 1) + kPingsOverSeconds) {
        told_ += 1;
        const auto found = reports_.find(told_);
        const int count = found != reports_.end() ? found->second : 0;
        std::string line = "sweep " + std::to_string(told_) + ": ";
        if (count > 0) {
            line += std::to_string(count) + (count == 1 ? " report" : " reports");
        } else if (told_ == 1) {
            line += "nothing found in the neighbour table";
        } else {
            line += "no change reported";
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace sim
