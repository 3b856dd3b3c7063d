#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tools/sim/SimOptions.h"
#include "tools/sim/Simulator.h"

namespace {

// A multi-packet's length field has 16 bits.
constexpr std::size_t kLargestMessage = 65535;

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    sim::SimOptions options;
    std::string message;
    switch (options.parse(std::vector<std::string>(argv + 1, argv + argc), message)) {
        case sim::SimOptions::Outcome::Help:
            std::fputs(sim::SimOptions::helpText().c_str(), stdout);
            return 0;
        case sim::SimOptions::Outcome::Version:
            std::puts(sim::SimOptions::versionText().c_str());
            return 0;
        case sim::SimOptions::Outcome::Error:
            std::fprintf(stderr, "%s\n", message.c_str());
            return 2;
        case sim::SimOptions::Outcome::Run:
            break;
    }
    const std::string setUnits = sim::Simulator::setUnitsPacket(options.units);
    if (setUnits.size() > kLargestMessage) {
        std::fprintf(stderr,
                     "ambrelis-sim: the unit list makes a message of %zu bytes; one holds at "
                     "most %zu\n",
                     setUnits.size(), kLargestMessage);
        return 2;
    }
    try {
        sim::Simulator simulator(options, setUnits);
        return simulator.run();
    } catch (const std::exception& failure) {
        std::fflush(stdout);
        std::fprintf(stderr, "ambrelis-sim: %s\n", failure.what());
        return 1;
    }
}
