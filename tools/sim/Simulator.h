#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Ref.h"
#include "scan/SweepTiming.h"
#include "tools/sim/DriverChild.h"
#include "tools/sim/DriverStream.h"
#include "tools/sim/Listener.h"
#include "tools/sim/PresenceTable.h"
#include "tools/sim/RawTerminal.h"
#include "tools/sim/SignalWatch.h"
#include "tools/sim/SimDisplay.h"
#include "tools/sim/SimOptions.h"
#include "tools/sim/SweepClock.h"
#include "wire/cAmbrelisCommand.h"

namespace sim {

// The simulated controller: listens, starts the driver, answers it and shows what it reports,
// in one poll loop over the listener, the link, the keyboard, the driver's output, its pidfd
// and the signals, with deadlines as the poll's time-out.
class Simulator {
public:
    static constexpr double kConnectSeconds = 20;
    // After "close" the driver may finish the sweep under way (a sweep stops waiting for its fill
    // at a close): a round of pings for every round's worth of hosts beyond the first, then its
    // last events before it ends; 4 s more for a busy machine.
    static constexpr double kCloseBaseSeconds = SweepTiming::kLastEventsMilliseconds / 1000.0 + 4;
    // The first sweep's hosts are reported only as their pings end, so until then a driver may
    // be busy with more hosts than it has reported: at least this many are assumed, as on a
    // home LAN.
    static constexpr std::size_t kLeastHostsAssumed = 24;
    // How long a driver that watches `hosts` hosts may take to end after "close".
    static double closeSeconds(std::size_t hosts);

    // setUnitsPacket is the answer to "getUnits", built beforehand.
    Simulator(const SimOptions& options, std::string driverPath, std::string setUnitsPacket);
    ~Simulator();
    // Runs until the driver has ended and returns the simulator's exit status.
    int run();

private:
    enum class Phase { Connecting, Linked, Closing };
    using Clock = std::chrono::steady_clock;

    // The loop (Simulator.cpp).
    void pollOnce();
    int timeoutMs() const;
    double now() const;
    std::string status() const;
    void notice(const std::string& text);
    void finish(int exitStatus, const std::string& text);

    // The link (SimulatorLink.cpp).
    void acceptDriver();
    // False once nothing more is waiting.
    bool readLink();
    void writeLink();
    // False when there is no link to send on.
    bool send(const std::string& bytes);
    void linkLost(const std::string& why);
    void handle(const DriverStream::Item& item);
    void handleMessage(cAmbrelisCommand& message);
    void reportPresence(cAmbrelisCommand& message, PresenceTable::State state);
    void reportResponse(cAmbrelisCommand& message);
    bool readDriverOutput();
    void driverSays(std::string line);

    // Keys, signals, deadlines and the end (SimulatorControl.cpp).
    void readKeys();
    void key(char c);
    void takeSignals();
    void checkDeadlines();
    void askToClose(const std::string& why);
    void giveTimeToEnd();
    void stopDriver(const std::string& why);
    void driverEnded();

    const SimOptions& options_;
    const std::string driverPath_;
    const std::string setUnitsPacket_;
    const Clock::time_point start_ = Clock::now();
    const bool tableMode_;

    PresenceTable table_;
    SweepClock clock_;
    std::unique_ptr<SimDisplay> display_;
    SignalWatch signals_;
    std::optional<RawTerminal> terminal_;
    Listener listener_;
    std::optional<DriverChild> driver_;

    Phase phase_ = Phase::Connecting;
    int keyboard_ = -1;
    int client_ = -1;
    std::string outgoing_;
    DriverStream stream_;
    std::string driverOutput_;
    bool debugOn_ = false;
    std::optional<double> pingSentAt_;

    double connectBy_ = kConnectSeconds;
    std::optional<double> runUntil_;
    std::optional<double> closeBy_;
    double closeWait_ = 0;
    std::optional<int> exitStatus_;
    std::string finalText_;
};

}  // namespace sim
