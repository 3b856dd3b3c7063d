// One multi-packet through the reader, every key's getter and the writer.
#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "host/Dictionary.h"
#include "host/StringFunctions.h"
#include "wire/cAmbrelisCommand.h"

namespace {

// Above this a value's length no longer fits its 16-bit field, and the framing breaks by design.
constexpr std::size_t kLargestFramed = 0xFFFF;

host::Ref<cAmbrelisCommand> read(const host::String& packet) {
    auto cmd = host::New<cAmbrelisCommand>();
    cmd->Constructor();
    fuzz::require(cmd->initFromMultiPacket(packet), "the reader accepts every packet");
    return cmd;
}

// What a receiver of cmd's packet must find: each key right-aligned in four bytes, and of keys
// that end up alike the later one.
host::Dictionary<host::String> onTheWire(const cAmbrelisCommand& cmd) {
    host::Dictionary<host::String> expected;
    const auto& dict = *cmd.MultiDict;
    for (std::int64_t i = 0; i < dict.Count(); ++i) {
        const host::String padded = host::RightB("    " + dict.Key(i).stringValue(), 4);
        expected.SetValue(padded, dict.valueAt(i));
    }
    return expected;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto cmd = read(fuzz::bytes(data, size));
    for (const host::String& key : cmd->GetKeys()) {
        cmd->GetMulti(key);
    }
    cmd->DebugString();
    cmd->MakeAck()->GetRawCommand();

    const host::String written = cmd->GetRawCommand();
    fuzz::require(written.byteAt(0) == 'J' && written.byteAt(3) == 0x80,
                  "the writer's lead and flag bytes");
    if (written.size() > kLargestFramed) {
        return 0;
    }
    fuzz::require(written.byteAt(1) + 256u * written.byteAt(2) == written.size(),
                  "the length field counts the packet");

    const auto copy = read(written);
    const auto expected = onTheWire(*cmd);
    fuzz::require(copy->MultiDict->Count() == expected.Count(), "the keys survive the wire");
    for (std::int64_t i = 0; i < expected.Count(); ++i) {
        const host::String* value = copy->MultiDict->lookup(expected.Key(i));
        fuzz::require(value != nullptr && value->sameBytes(expected.valueAt(i)),
                      "each value survives the wire");
    }
    return 0;
}
