#include "tools/sim/SweepClock.h"

#include <algorithm>
#include <cmath>

#include "scan/SweepTiming.h"

namespace sim {

namespace {

// The run loop looks whether a sweep is due once a turn.
constexpr double kPeriod =
    SweepTiming::kPeriodSeconds + SweepTiming::kLoopTurnMilliseconds / 1000.0;
// The first sweep waits for its own fill, on a home LAN no longer than the settling.
constexpr double kFirstFill = SweepTiming::kFillSettleMilliseconds / 1000.0;

}  // namespace

double SweepClock::gapAfter(int sweep) {
    return kPeriod + (sweep == 1 ? kFirstFill : 0);
}

double SweepClock::pingsOverAfter(int sweep) {
    // A margin for the report to cross the link.
    constexpr double kMargin = 0.5;
    return (sweep == 1 ? kFirstFill : 0) + SweepTiming::kProbeSeconds + kMargin;
}

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
    anchorSweep_ = at - startOf(under) > gapAfter(under) / 2 ? under + 1 : under;
    anchor_ = at;
}

void SweepClock::reported(double at) {
    reports_[sweepAt(at)] += 1;
}

int SweepClock::sweepAt(double at) const {
    if (!anchor_) {
        return 0;
    }
    const double first = startOf(1);
    if (at < first) {
        return 0;
    }
    const double second = first + gapAfter(1);
    return at < second ? 1 : 2 + static_cast<int>(std::floor((at - second) / kPeriod));
}

double SweepClock::startOf(int sweep) const {
    // Only the gap after the first sweep differs.
    const auto pastFirst = [](int n) { return n > 1 ? kFirstFill : 0; };
    return anchor_.value_or(0) + (sweep - anchorSweep_) * kPeriod + pastFirst(sweep) -
           pastFirst(anchorSweep_);
}

std::optional<double> SweepClock::nextIn(double at) const {
    if (!anchor_ || stopped_) {
        return std::nullopt;
    }
    return std::max(0.0, startOf(sweepAt(at) + 1) - at);
}

std::vector<std::string> SweepClock::takeSummaries(double at) {
    std::vector<std::string> lines;
    while (anchor_ && told_ + 1 <= sweepAt(at) &&
           at >= startOf(told_ + 1) + pingsOverAfter(told_ + 1)) {
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
