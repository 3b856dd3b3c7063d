#include <cerrno>
#include <cstring>
#include <fstream>

#include "tools/sim/UnitList.h"

namespace sim {

std::optional<std::string> UnitList::addFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return path + ": cannot read: " + std::strerror(errno);
    }
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (auto problem = addLine(line)) {
            return path + ":" + std::to_string(number) + ": " + *problem;
        }
    }
    if (in.bad()) {
        return path + ": cannot read: " + std::strerror(errno);
    }
    return std::nullopt;
}

}  // namespace sim
