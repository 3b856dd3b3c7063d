#pragma once

#include "host/RuntimeException.h"

namespace host {

// Recursion that came too close to the end of the stack.
class StackOverflowException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "StackOverflowException"; }
};

}  // namespace host
