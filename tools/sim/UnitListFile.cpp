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
        const std::string place = path + ":" + std::to_string(number);
        if (auto problem = addLine(line, place)) {
            return place + ": " + *problem;
        }
    }
    if (in.bad()) {
        return path + ": cannot read: " + std::strerror(errno);
    }
    return std::nullopt;
}

}  // namespace sim
