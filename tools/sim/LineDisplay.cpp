#include "tools/sim/LineDisplay.h"

#include <cstdio>

namespace sim {

void LineDisplay::event(double at, const std::string& line) {
    std::printf("%.1fs %s\n", at, line.c_str());
}

void LineDisplay::show(double /*now*/, const std::string& /*status*/) {
    std::fflush(stdout);
}

}  // namespace sim
