#pragma once

#include "host/RuntimeException.h"

namespace host {

// Raised to end a thread quietly; the wrapper swallows it.
class ThreadEndException : public RuntimeException {
public:
    using RuntimeException::RuntimeException;
    const char* className() const noexcept override { return "ThreadEndException"; }
};

}  // namespace host
