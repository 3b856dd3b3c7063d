#pragma once

#include <string>

#include "host/String.h"

namespace sim {

// The bytes of what the simulated controller sends the driver.
class ControllerMessages {
public:
    static std::string setUnits(const host::String& data);
    static std::string ping();
    // The driver turns debug mode on for "true" and off for anything else.
    static std::string debug(bool on);
    // The control message "D", which toggles debug mode.
    static std::string toggleDebug();
    static std::string close();
};

}  // namespace sim
