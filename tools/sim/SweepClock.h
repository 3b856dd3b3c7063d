#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

// The driver's sweeps as the simulator can tell them from the wire alone, by the driver's own
// timing. The first starts when the driver asks for its units and waits for its neighbour fill;
// each next one starts a period after the previous one ended, and finds its fill, which runs
// ahead of it, over. With debug mode on, the driver's "begin arp scan" marks a start exactly and
// the clock follows it.
class SweepClock {
public:
    // From the start of `sweep` to the start of the next.
    static double gapAfter(int sweep);
    // How long after its start a sweep's pings are over: its wait for the fill, then a probe.
    static double pingsOverAfter(int sweep);

    void unitsAsked(double at);
    void logLine(double at, const std::string& text);
    void reported(double at);
    // No sweep follows once the driver has been asked to close.
    void stop() { stopped_ = true; }
    bool stopped() const { return stopped_; }

    // The sweep under way at `at`: 0 before the first one.
    int sweepAt(double at) const;
    double startOf(int sweep) const;
    // Seconds until the next sweep starts; nothing before the first one.
    std::optional<double> nextIn(double at) const;
    // For each sweep whose pings are over and that was not told yet, a line saying what it
    // brought.
    std::vector<std::string> takeSummaries(double at);
    // How many sweeps have had their pings over and been told.
    int sweepsTold() const { return told_; }

private:
    std::optional<double> anchor_;  // the start of sweep anchorSweep_
    int anchorSweep_ = 1;
    std::map<int, int> reports_;  // per sweep
    int told_ = 0;
    bool stopped_ = false;
};

}  // namespace sim
