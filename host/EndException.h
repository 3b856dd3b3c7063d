#pragma once

#include "host/RuntimeException.h"

namespace host {

// Raised to end the program quietly; the wrapper swallows it.
class EndException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "EndException"; }
};

}  // namespace host
