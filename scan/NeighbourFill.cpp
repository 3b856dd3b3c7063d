#include "scan/NeighbourFill.h"

#include "core/Globals.h"
#include "host/Deadline.h"
#include "host/EventPump.h"
#include "link/AmbrelisSupport.h"
#include "scan/LocalNetworks.h"
#include "scan/SweepTiming.h"
#include "scan/SystemTools.h"

void NeighbourFill::startAhead(double secondsToSweep) {
    if (!plannedEnd_ && lead_ > Clock::duration::zero() &&
        std::chrono::duration<double>(secondsToSweep) <= lead_) {
        start();
    }
}

void NeighbourFill::waitUntilOver() {
    if (!plannedEnd_) {
        // The first sweep, which no fill runs ahead of, holds the link for the broadcast's time
        // at most: the unit list must come after its table, or units the table holds would be
        // answered OFF. What the fill has not reached by then shows at the next sweep.
        start();
        if (AmbrelisSupport::AmbrelisSocket) {
            AmbrelisSupport::AmbrelisSocket->Flush();  // "getUnits" must not wait for the table
        }
        tools_->waitWhileRunning(SweepTiming::kBroadcastSeconds * 1000);
    } else {
        const host::Deadline deadline(*plannedEnd_ + kOverrun);
        host::EventPump::instance().runUntil(
            deadline.pollTimeout(), [this] { return !tools_->IsRunning() || Globals::DoQuit; });
    }
    plannedEnd_.reset();
}

void NeighbourFill::start() {
    const auto planned =
        SystemTools::startFill(*tools_, LocalNetworks::fillRanges(LocalNetworks::current()));
    plannedEnd_ = Clock::now() + planned;
    lead_ = planned + kSettle;
}
