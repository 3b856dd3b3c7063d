#pragma once

#include "host/RuntimeException.h"

namespace host {

// A value of the wrong type for the operation.
class TypeMismatchException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "TypeMismatchException"; }
};

}  // namespace host
