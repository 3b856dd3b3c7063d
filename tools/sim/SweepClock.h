#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

// The driver's sweeps as the simulator can tell them from the wire alone. The first starts when
// the driver asks for its units; each next one starts 30 s after the previous one read the
// neighbour table, which is about 2 s after it started. With debug mode on, the driver's
// "begin arp scan" marks a start exactly and the clock follows it.
class SweepClock {
public:
    // The fill takes at most 2 s, the pump looks every 0.25 s, and the rest is 30 s.
    static constexpr double kPeriodSeconds = 32.25;
    // How long after its start a sweep's pings are over: the fill, then a 3 s ping.
    static constexpr double kPingsOverSeconds = 5.5;

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
