#pragma once

#include "host/RuntimeException.h"

namespace host {

// An allocation that failed.
class OutOfMemoryException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "OutOfMemoryException"; }
};

}  // namespace host
