#pragma once

#include <cstdint>

// Out-of-line raisers, so that the small templates (Array, Ref, Dictionary) need not include
// the exception classes, which themselves hold an Array.
namespace host {

[[noreturn]] void raiseOutOfBounds(std::int64_t index, std::int64_t upperBound);
[[noreturn]] void raiseNilObject();
[[noreturn]] void raiseKeyNotFound();
[[noreturn]] void raiseIllegalCast();

}  // namespace host
