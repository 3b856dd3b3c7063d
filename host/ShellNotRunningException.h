#pragma once

#include "host/RuntimeException.h"

namespace host {

// A Shell call that needs a running child when none runs.
class ShellNotRunningException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "ShellNotRunningException"; }
};

}  // namespace host
