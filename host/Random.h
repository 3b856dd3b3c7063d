#pragma once

#include <cstdint>
#include <random>

namespace host {

// The host's random source; a new object seeds itself.
class Random {
public:
    Random();
    // An integer from low to high, both ends included.
    std::int64_t InRange(std::int64_t low, std::int64_t high);

private:
    std::mt19937_64 engine_;
};

}  // namespace host
