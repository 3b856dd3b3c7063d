// One common message through the reader, the diagnostics and the writer.
#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "wire/cAmbrelisCommand.h"

namespace {

// From this length on every field up to the unit code is read from the packet, so nothing
// shifts when the writer leaves out an empty one.
constexpr std::size_t kAllAddressFields = 11;

host::Ref<cAmbrelisCommand> read(const host::String& packet, bool& accepted) {
    auto cmd = host::New<cAmbrelisCommand>();
    cmd->Constructor();
    accepted = cmd->InitFromCommonMessage(packet);
    return cmd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const host::String packet = fuzz::bytes(data, size);
    bool accepted = false;
    const auto cmd = read(packet, accepted);
    fuzz::require(cmd->RawCommonCommand.sameBytes(packet), "the packet is kept as received");

    cmd->DebugString();
    cmd->GetLogLine();
    cmd->GetErrorCodeDescription();
    cmd->GetSendRawData();

    const host::String written = cmd->GetRawCommand();
    fuzz::require(cmd->GetRawCommand().sameBytes(written), "a second write gives the same bytes");
    fuzz::require(written.size() == static_cast<std::size_t>(written.byteAt(1)),
                  "the length byte counts the packet");

    // What the writer makes of a packet read in full, it reads back and writes again unchanged.
    if (accepted && !(cmd->Header == "L") && size >= kAllAddressFields) {
        bool again = false;
        const auto copy = read(written, again);
        fuzz::require(again, "the writer's packet is accepted");
        fuzz::require(copy->GetRawCommand().sameBytes(written), "a read packet writes back");
    }
    return 0;
}
