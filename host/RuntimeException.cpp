#include "host/RuntimeException.h"

#include <cxxabi.h>
#include <execinfo.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <string>

namespace host {

namespace {

constexpr int kMaxFrames = 64;

// "binary(mangled+0x1f) [0x4011]" gives the demangled function, or the raw text when the
// frame has no exported name.
std::string frameText(const char* symbol) {
    std::string raw(symbol);
    auto open = raw.find('(');
    auto plus = raw.find('+', open == std::string::npos ? 0 : open);
    if (open == std::string::npos || plus == std::string::npos || plus == open + 1) {
        return raw;
    }
    std::string mangled = raw.substr(open + 1, plus - open - 1);
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), &std::free);
    return status == 0 && demangled ? std::string(demangled.get()) : mangled;
}

// Frames that only build the exception say nothing about where it was raised.
bool isRaiseFrame(const std::string& frame) {
    return frame.rfind("host::raise", 0) == 0 || frame.find("Exception::") != std::string::npos;
}

Array<String> captureStack() {
    std::array<void*, kMaxFrames> frames{};
    int count = backtrace(frames.data(), kMaxFrames);
    std::unique_ptr<char*, decltype(&std::free)> symbols(backtrace_symbols(frames.data(), count),
                                                         &std::free);
    Array<String> stack;
    if (!symbols) {
        return stack;
    }
    bool leading = true;
    for (int i = 1; i < count; ++i) {
        std::string frame = frameText(symbols.get()[i]);
        if (leading && isRaiseFrame(frame)) {
            continue;
        }
        leading = false;
        stack.Append(String(frame));
    }
    return stack;
}

}  // namespace

RuntimeException::RuntimeException(String message, std::int64_t errorNumber)
    : Message(std::move(message)), ErrorNumber(errorNumber), Stack(captureStack()) {}

const char* RuntimeException::what() const noexcept {
    return Message.empty() ? className() : Message.data();
}

}  // namespace host
