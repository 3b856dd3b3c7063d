// One ended ping: the first byte is the tool's exit code, the rest what it printed. The outcome
// is brought to BSD form, and a good one is cut into the fields the device reports.
#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "scan/SystemTools.h"
#include "scan/cDevice.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::int64_t exitCode = data[0];
    const auto outcome = SystemTools::probeOutcome(exitCode, fuzz::bytes(data + 1, size - 1));
    fuzz::require(outcome.exitCode == exitCode || (exitCode == 1 && outcome.exitCode == 0),
                  "only the tool's 'fewer replies' code turns good");
    if (outcome.exitCode != 0) {
        return 0;
    }
    const host::String& text = outcome.output;
    cDevice::pingedAddressIn(text);
    cDevice::averageTimeIn(text);
    return 0;
}
