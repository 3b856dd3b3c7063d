#pragma once

#include "host/RuntimeException.h"

namespace host {

// Use of a nil reference.
class NilObjectException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "NilObjectException"; }
};

}  // namespace host
