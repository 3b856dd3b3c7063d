#pragma once

#include "host/RuntimeException.h"

namespace host {

// Text that cannot be read in the asked format.
class UnsupportedFormatException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "UnsupportedFormatException"; }
};

}  // namespace host
