// One byte string through the record reader, then a walk over what was read, the readable form
// and the writer.
#include <cstddef>
#include <cstdint>

#include "CXMLWalk.h"
#include "FuzzInput.h"
#include "host/RuntimeException.h"
#include "host/StackOverflowException.h"
#include "store/CXML.h"

namespace {

host::Ref<CXML> freshRecord() {
    auto record = host::New<CXML>();
    record->Constructor();
    return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto record = freshRecord();
    try {
        record->loadFromString(fuzz::bytes(data, size));
    } catch (const host::RuntimeException&) {
        // The driver's caller leaves these to the failure guard; what was read stays.
    }
    fuzz::walk(record);

    host::String saved;
    try {
        saved = record->SaveToString();
    } catch (const host::RuntimeException&) {
        return 0;  // too deep to write: the stack check refused it
    }
    // The writer's form is its own fixed point: read back and written again, it is unchanged.
    const auto copy = freshRecord();
    try {
        copy->loadFromString(saved);
    } catch (const host::StackOverflowException&) {
        return 0;  // a tree cut at the stack's limit is saved whole but read back cut again
    }
    fuzz::require(copy->SaveToString().sameBytes(saved), "a written record reads back the same");
    return 0;
}
