#pragma once

#include <cstddef>

namespace host {

// Room left below the caller's frame when a deeper call is refused: enough to build and throw
// StackOverflowException and unwind. Sanitizer frames are several times bigger.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr std::size_t kStackSafetyMargin = std::size_t{1024} * 1024;
#else
inline constexpr std::size_t kStackSafetyMargin = std::size_t{256} * 1024;
#endif

// Opens every recursive function, so that input nested too deep raises StackOverflowException
// instead of ending the process. Once the thread's stack bounds are known (the first call on each
// thread) it costs one comparison.
void checkStack();

}  // namespace host
