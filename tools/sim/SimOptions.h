#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/sim/UnitList.h"

namespace sim {

// The simulator's command line.
class SimOptions {
public:
    enum class Outcome { Run, Help, Version, Error };

    static constexpr int kDefaultPort = 20300;

    // Reads the arguments after the program's name. On Error, message says all that is wrong,
    // one problem a line.
    Outcome parse(const std::vector<std::string>& arguments, std::string& message);
    static std::string helpText();
    static std::string versionText();
    // The driver's path: --driver, or arp-presence beside the simulator's own executable.
    std::string driverToStart() const;

    int port = kDefaultPort;
    std::string driverPath;  // empty: arp-presence beside the simulator's own executable
    std::string connectionId = "sim-1";
    double runSeconds = 0;  // 0: until asked to close
    std::size_t logLines = 10;
    UnitList units;

private:
    // Stores the value of an option that takes one; returns its problems, none when it is good.
    std::vector<std::string> apply(const std::string& name, const std::string& value);
};

}  // namespace sim
