#pragma once

#include <termios.h>

#include <array>
#include <chrono>
#include <optional>
#include <string>

#include "host/ByteQueue.h"
#include "host/ChildProcess.h"
#include "host/Deadline.h"
#include "host/EventPump.h"
#include "host/UniqueFd.h"
#include "tools/sim/PresenceTable.h"
#include "tools/sim/SimOptions.h"
#include "tools/sim/SweepClock.h"
#include "tools/sim/TableDisplay.h"
#include "wire/cAmbrelisCommand.h"

namespace sim {

// The simulated controller: listens, starts the driver, answers it and shows what it reports.
// The host's pump serves the listener, the link, the keyboard, the driver's output, its end and
// the signals; the deadlines bound each of its turns.
class Simulator {
public:
    // The answer to "getUnits", built before anything starts.
    static std::string setUnitsPacket(const UnitList& units);

    Simulator(const SimOptions& options, std::string setUnitsPacket);
    ~Simulator();
    // Runs until the driver has ended and returns the simulator's exit status.
    int run();

private:
    enum class Phase { Connecting, Linked, Closing };
    enum Source { kSignals, kKeys, kListener, kLink, kOutput, kEnded, kSources };
    using Clock = host::Deadline::Clock;

    // The loop, keys, signals, deadlines and the end (Simulator.cpp).
    void watch(Source source, int fd, host::EventPump::Handler handler);
    void unwatch(Source source);
    double now() const;
    int timeoutMs() const;
    std::string status() const;
    void event(const std::string& line);
    void notice(const std::string& text);
    void finish(int exitStatus, const std::string& text);
    void readKeys();
    void key(char c);
    void readSignals();
    void checkDeadlines();
    void askToClose(const std::string& why);
    void giveTimeToEnd();
    void stopDriver(const std::string& why);
    void driverEnded();

    // The listener, the link and the driver's output (SimulatorLink.cpp).
    void listen();
    void acceptDriver();
    void serveLink(short events);
    // False once nothing more is waiting.
    bool readLink();
    void writeLink();
    // False when there is no link to send on.
    bool send(const std::string& bytes);
    void linkLost(const std::string& why);
    void cutStream();
    void greeting(const std::string& line);
    void handleMessage(cAmbrelisCommand& message);
    void reportPresence(cAmbrelisCommand& message, PresenceTable::State state);
    void reportResponse(cAmbrelisCommand& message);
    // False once nothing more is waiting.
    bool readDriverOutput();
    void driverSays(std::string line);

    const SimOptions& options_;
    const std::string setUnitsPacket_;
    const Clock::time_point start_ = Clock::now();

    PresenceTable table_;
    SweepClock clock_;
    std::optional<TableDisplay> screen_;  // on a terminal; otherwise a line per event
    std::optional<termios> savedTerminal_;
    std::array<host::EventPump::WatchId, kSources> watches_{};
    host::UniqueFd signals_;
    host::UniqueFd listener_;
    int port_ = 0;
    std::optional<host::ChildProcess> driver_;

    Phase phase_ = Phase::Connecting;
    host::UniqueFd link_;
    host::ByteQueue incoming_;
    host::ByteQueue outgoing_;
    bool greeted_ = false;
    host::ByteQueue driverOutput_;
    bool debugOn_ = false;
    std::optional<double> pingSentAt_;

    std::optional<host::Deadline> connectBy_;
    std::optional<host::Deadline> runUntil_;
    std::optional<host::Deadline> closeBy_;
    double closeWait_ = 0;
    std::optional<int> exitStatus_;
    std::string finalText_;
    std::string failure_;  // what a handler threw, for run() to throw on
};

}  // namespace sim
