#pragma once

#include "host/RuntimeException.h"

namespace host {

// A read of a key that a Dictionary does not hold.
class KeyNotFoundException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "KeyNotFoundException"; }
};

}  // namespace host
