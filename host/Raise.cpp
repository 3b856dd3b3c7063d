#include "host/Raise.h"

#include <string>

#include "host/IllegalCastException.h"
#include "host/KeyNotFoundException.h"
#include "host/NilObjectException.h"
#include "host/OutOfBoundsException.h"

namespace host {

void raiseOutOfBounds(std::int64_t index, std::int64_t upperBound) {
    throw OutOfBoundsException(
        String("index " + std::to_string(index) + " outside 0 to " + std::to_string(upperBound)));
}

void raiseNilObject() {
    throw NilObjectException();
}

void raiseKeyNotFound() {
    throw KeyNotFoundException();
}

void raiseIllegalCast() {
    throw IllegalCastException();
}

}  // namespace host
