#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/String.h"

namespace fuzz {

// The fuzzer's bytes as the host's untagged byte string, as a socket or a child delivers them.
inline host::String bytes(const std::uint8_t* data, std::size_t size) {
    return host::String(std::string(reinterpret_cast<const char*>(data), size));
}

// A broken property is a finding like a crash: stop here, so that the fuzzer keeps the input.
inline void require(bool holds, const char* property) {
    if (!holds) {
        std::fprintf(stderr, "property broken: %s\n", property);
        std::abort();
    }
}

}  // namespace fuzz
