#include "host/Random.h"

#include <utility>

namespace host {

Random::Random() {
    std::random_device device;
    std::seed_seq seeds{device(), device(), device(), device()};
    engine_.seed(seeds);
}

std::int64_t Random::InRange(std::int64_t low, std::int64_t high) {
    if (low > high) {
        std::swap(low, high);
    }
    return std::uniform_int_distribution<std::int64_t>(low, high)(engine_);
}

}  // namespace host
