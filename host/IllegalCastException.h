#pragma once

#include "host/RuntimeException.h"

namespace host {

// A checked cast to a class the object does not belong to.
class IllegalCastException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "IllegalCastException"; }
};

}  // namespace host
