#include <cerrno>
#include <cstring>
#include <fstream>

#include "tools/sim/UnitList.h"

namespace sim {

std::vector<std::string> UnitList::addFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return {path + ": cannot read: " + std::strerror(errno)};
    }
    std::vector<std::string> problems;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string place = path + ":" + std::to_string(number);
        if (auto problem = addLine(line, place)) {
            problems.push_back(place + ": " + *problem);
        }
    }
    if (in.bad()) {
        problems.push_back(path + ": cannot read: " + std::strerror(errno));
    }
    return problems;
}

}  // namespace sim
