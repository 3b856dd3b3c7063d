#pragma once

#include <cstdint>
#include <exception>

#include "host/Array.h"
#include "host/String.h"

namespace host {

// Base of every failure the host raises. Stack holds one text per frame, taken when the
// exception is made, so the failure guard can log where it came from.
class RuntimeException : public std::exception {
public:
    explicit RuntimeException(String message = String(), std::int64_t errorNumber = 0);

    String Message;
    std::int64_t ErrorNumber = 0;
    Array<String> Stack;

    // The class name, for reports of the host's own default handler.
    virtual const char* className() const noexcept { return "RuntimeException"; }
    const char* what() const noexcept override;
};

}  // namespace host
