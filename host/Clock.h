#pragma once

#include <cstdint>

namespace host {

// Sixtieths of a second since the program started, counted from 1 so that no value is 0;
// monotonic.
std::int64_t Ticks();
// Microseconds since the program started; monotonic.
double Microseconds();

}  // namespace host
