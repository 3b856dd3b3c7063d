#pragma once

#include "host/RuntimeException.h"

namespace host {

// A failed read or write of a stream, file or descriptor; ErrorNumber holds errno.
class IOException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "IOException"; }
};

}  // namespace host
