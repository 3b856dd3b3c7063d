#pragma once

#include <cstdint>
#include <string>

namespace sim {

// One unit of the simulated controller, as it goes to the driver in the unit list.
struct SimUnit {
    std::int64_t uniqueid = 0;
    std::string name;
    std::string address;
};

}  // namespace sim
