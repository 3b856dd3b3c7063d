// One output of the neighbour table tool, brought to BSD form, then each line cut as the sweep
// cuts it: the scanner's hardware address and the device's two addresses. Nothing is run.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "host/StringFunctions.h"
#include "host/SystemTools.h"
#include "scan/cDevice.h"
#include "scan/cScanner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const host::String output = fuzz::bytes(data, size);
    const host::String table = host::SystemTools::neighbourLinesInBsdForm(output);
    const auto lineEnds = [](const host::String& text) {
        return std::count(text.view().begin(), text.view().end(), '\n');
    };
    fuzz::require(lineEnds(table) == lineEnds(output), "each line stays one line");
    fuzz::require(host::SystemTools::neighbourLinesInBsdForm(table).sameBytes(table),
                  "lines in BSD form stay as they are");

    cScanner scanner;
    scanner.Constructor();
    for (const host::String& line : host::Split(table, host::Chr(10))) {
        const host::String mac = scanner.GetMacAddress(line);
        auto device = host::New<cDevice>();
        device->LoadFromArpLine(line);
        fuzz::require(device->MyMacAddress.sameBytes(mac),
                      "a device stands under the hardware address the scanner cut");
        scanner.HostDict->SetValue(mac, device);
    }
    return 0;
}
