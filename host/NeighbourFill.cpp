#include "host/NeighbourFill.h"

#include <numeric>
#include <utility>

#include "host/SystemTools.h"

namespace host {

namespace {

// The kernel gives up an unanswered resolution after 3 seconds; until then each address holds a
// neighbour entry. Past 512 entries (its default gc_thresh2) the kernel evicts entries idle for
// 5 seconds, hosts that are there among them, and past 1024 it makes no more. Up to 512
// addresses go at the tool's quickest; more are paced so that about 500 wait at a time.
constexpr std::uint64_t kQuickAddresses = 512;
constexpr std::int64_t kQuickIntervalMs = 1;
constexpr std::int64_t kPacedIntervalMs = 6;

}  // namespace

NeighbourFill::NeighbourFill() {
    Mode = 1;
}

void NeighbourFill::start(std::vector<LocalNetworks::Range> ranges) {
    const std::uint64_t addresses =
        std::accumulate(ranges.begin(), ranges.end(), std::uint64_t{0},
                        [](std::uint64_t sum, const auto& range) { return sum + range.size(); });
    intervalMs_ = addresses <= kQuickAddresses ? kQuickIntervalMs : kPacedIntervalMs;
    ranges_ = std::move(ranges);
    next_ = 0;
    if (busy_) {
        // Its end, delivered by the pump, starts the new fill.
        Close();
    } else {
        startNext();
    }
}

void NeighbourFill::Event_Completed() {
    busy_ = false;
    startNext();
}

void NeighbourFill::startNext() {
    if (next_ < ranges_.size()) {
        busy_ = true;
        SystemTools::fillNeighbours(*this, ranges_[next_++], intervalMs_);
    }
}

}  // namespace host
