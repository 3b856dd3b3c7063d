#include "scan/NeighbourFill.h"

#include "core/Globals.h"
#include "host/Deadline.h"
#include "host/EventPump.h"
#include "scan/LocalNetworks.h"
#include "scan/SweepTiming.h"
#include "scan/SystemTools.h"

void NeighbourFill::startAhead(double secondsToSweep) {
    // A fill ahead ends this much before the sweep, for the kernel's answers to its last
    // requests and for the broadcast's.
    constexpr auto kSettle = std::chrono::milliseconds(SweepTiming::kFillSettleMilliseconds);
    if (!started_ && planned_ &&
        std::chrono::duration<double>(secondsToSweep) <= *planned_ + kSettle) {
        start();
    }
}

void NeighbourFill::waitUntilOver() {
    if (!started_) {
        start();
    }
    host::EventPump::instance().runUntil(
        host::Deadline(*started_ + *planned_ + kOverrun).pollTimeout(),
        [this] { return !fill_->IsRunning() || Globals::DoQuit; });
    started_.reset();
}

void NeighbourFill::start() {
    started_ = Clock::now();
    planned_ = SystemTools::startFill(*fill_, *broadcast_,
                                      LocalNetworks::fillRanges(LocalNetworks::current()));
}
