// Any bytes as the kernel's reply to a neighbour dump, read as one datagram and again as one
// datagram per message; then each entry made the line the sweep gets, and cut as the sweep cuts
// it. Nothing is sent. The seeds are real replies (capture_neighbours.cpp).
#include <linux/neighbour.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "FuzzInput.h"
#include "scan/LocalNetworks.h"
#include "scan/NeighbourDump.h"
#include "scan/NeighbourTable.h"
#include "scan/cScanner.h"

namespace {

// The sequence the seeds carry.
constexpr std::uint32_t kSequence = 1;
constexpr std::string_view kInterface = "eth0";
constexpr std::uint16_t kResolved =
    NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT;
// A header, an ndmsg and an NDA_DST of 4 bytes: the least an entry is made of.
constexpr std::size_t kSmallestEntry = 16 + 12 + 8;

// The bytes of each message by itself, as its length field frames it; from a length that cannot
// be one, the rest in one piece.
NeighbourDump::Status takeMessageByMessage(NeighbourDump& dump, std::string_view bytes) {
    auto status = NeighbourDump::Status::More;
    while (!bytes.empty()) {
        std::size_t piece = bytes.size();
        std::uint32_t length = 0;
        if (bytes.size() >= sizeof length) {
            std::memcpy(&length, bytes.data(), sizeof length);
            if (length >= 16 && length <= bytes.size()) {
                piece = std::min<std::size_t>((std::size_t{length} + 3) & ~std::size_t{3},
                                              bytes.size());
            }
        }
        status = dump.take(bytes.substr(0, piece));
        bytes.remove_prefix(piece);
    }
    return status;
}

bool same(const NeighbourDump::Entry& a, const NeighbourDump::Entry& b) {
    return a.address == b.address && a.hardware == b.hardware && a.state == b.state &&
           a.interfaceIndex == b.interfaceIndex;
}

cScanner& scanner() {
    static cScanner* const made = [] {
        auto* one = new cScanner;
        one->Constructor();
        return one;
    }();
    return *made;
}

void checkLine(const NeighbourDump::Entry& entry) {
    const std::string line = NeighbourTable::lineOf(entry, kInterface);
    if (entry.state == NUD_NOARP) {
        fuzz::require(line.empty(), "an entry without ARP is not listed");
        return;
    }
    const bool resolved = (entry.state & kResolved) != 0;
    if (line.empty()) {
        fuzz::require(resolved && entry.hardware.size() != 6,
                      "only a resolved entry without 6 hardware bytes goes unlisted");
        return;
    }
    const std::string head = "? (" + LocalNetworks::dotted(entry.address) + ") at ";
    fuzz::require(line.starts_with(head), "a line names its address in parentheses");
    const bool permanent = (entry.state & NUD_PERMANENT) != 0;
    fuzz::require(line.ends_with(permanent ? " on eth0 PERM" : " on eth0"),
                  "a line ends with its interface, and PERM when permanent");
    fuzz::require(line.find('\n') == std::string::npos, "a line is one line");
    const host::String mac = scanner().GetMacAddress(host::String(line));
    if (resolved) {
        fuzz::require(mac.view().size() == 17, "the sweep cuts 17 characters of hardware address");
    } else {
        fuzz::require(mac.view() == "(incomplete)", "an unresolved entry reads as incomplete");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    NeighbourDump whole(kSequence);
    const NeighbourDump::Status status = whole.take(bytes);
    NeighbourDump split(kSequence);
    const NeighbourDump::Status splitStatus = takeMessageByMessage(split, bytes);

    const auto& entries = whole.entries();
    fuzz::require(status == splitStatus && whole.cutShort() == split.cutShort() &&
                      whole.error() == split.error() &&
                      std::equal(entries.begin(), entries.end(), split.entries().begin(),
                                 split.entries().end(), same),
                  "a reply reads the same in one datagram and message by message");
    fuzz::require(entries.size() * kSmallestEntry <= size, "each entry has a message of its own");
    fuzz::require((status == NeighbourDump::Status::Failed) == (whole.error() > 0),
                  "a failed dump has an errno, and only a failed one");
    for (const NeighbourDump::Entry& entry : entries) {
        checkLine(entry);
    }
    return 0;
}
