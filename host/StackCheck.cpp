#include "host/StackCheck.h"

#include <pthread.h>

#include <cstdint>

#include "host/StackOverflowException.h"

namespace host {

namespace {

// The lowest frame address this thread may reach before a call is refused; 0 when the bounds
// cannot be learnt, which turns the check off rather than refusing everything.
std::uintptr_t findLimit() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return 0;
    }
    void* lowest = nullptr;
    std::size_t size = 0;
    int result = pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    return result == 0 ? reinterpret_cast<std::uintptr_t>(lowest) + kStackSafetyMargin : 0;
}

thread_local bool limitKnown = false;
thread_local std::uintptr_t limit = 0;

}  // namespace

void checkStack() {
    if (!limitKnown) {
        limit = findLimit();
        limitKnown = true;
    }
    // The frame address, not a local's: sanitizers may keep locals on a heap-allocated stack.
    auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    if (frame < limit) {
        throw StackOverflowException(String("stack nearly exhausted"));
    }
}

}  // namespace host
