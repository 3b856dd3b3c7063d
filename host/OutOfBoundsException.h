#pragma once

#include "host/RuntimeException.h"

namespace host {

// An array index out of range, or a missing command-line argument.
class OutOfBoundsException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "OutOfBoundsException"; }
};

}  // namespace host
