#include "scan/cDevice.h"

#include <cstdint>

#include "core/Globals.h"
#include "host/ConsoleApplication.h"
#include "host/StringFunctions.h"
#include "link/AmbrelisSupport.h"
#include "scan/SweepTiming.h"
#include "scan/SystemTools.h"
#include "wire/cAmbrelisCommand.h"

using host::String;

namespace {

// A new ping starts only while fewer than the most run.
constexpr std::int64_t kMostOutstanding = SweepTiming::kMostPings - 1;
constexpr std::int64_t kWaitSliceMilliseconds = 100;
// An arp host stays ON through failed pings for this long after its last answer.
constexpr double kArpGraceSeconds = 1020.0;

}  // namespace

void cDevice::DoPing() {
    Mode = 1;
    lastPing = host::New<host::Date>();
    // Pumping here lets ended pings bring the count down and keeps the link served.
    while (Globals::outstandingPings > kMostOutstanding) {
        host::ConsoleApplication::DoEvents(kWaitSliceMilliseconds);
    }
    Globals::outstandingPings += 1;
    if (Globals::DebugMode) {
        Globals::writelog(
            (useArpTiming ? "pinging local host at: " : "pinging remote host: ") + MyIPAddress, 2);
    }
    SystemTools::startProbe(*this, MyIPAddress);
}

void cDevice::Event_Completed() {
    // First, so that the count stays right whatever happens below.
    Globals::outstandingPings -= 1;
    const auto outcome = SystemTools::probeOutcome(ErrorCode(), Result());
    if (outcome.exitCode == 0) {
        goodPing(outcome.output);
    } else {
        badPing();
    }
}

String cDevice::pingedAddressIn(const String& output) {
    // The blank before "ping statistics" stays part of the address.
    return host::NthField(host::NthField(output, "ping statistics", 1), "--- ", 2);
}

String cDevice::averageTimeIn(const String& output) {
    return host::NthField(host::NthField(host::NthField(output, "round-trip", 2), " = ", 2), "/",
                          2);
}

void cDevice::goodPing(const String& output) {
    if (Globals::DebugMode) {
        Globals::writelog(MyIPAddress + " is available on the network.", 2);
    }
    LastGoodPing = host::New<host::Date>();
    if (!available || firstScan) {
        // Set before the send: an ON lost to a failed send is not sent again.
        available = true;
        SendONCommand(firstScan);
    }

    const String reportedAddress = pingedAddressIn(output);
    const String averageTime = averageTimeIn(output);

    const bool addressChanged = reportedAddress != lastSendIPADrress;
    const bool timeChanged = averageTime != lastAverageTime;
    if (addressChanged || timeChanged) {
        auto report = host::New<cAmbrelisCommand>();
        report->Constructor();
        report->SetMulti("mcmd", "NoOp");
        std::int64_t n = 0;
        if (addressChanged) {
            report->SetMulti("UPN" + host::Str(n), "IP");
            report->SetMulti("UPV" + host::Str(n), reportedAddress);
            n += 1;
            lastSendIPADrress = reportedAddress;
        }
        if (timeChanged) {
            report->SetMulti("UPN" + host::Str(n), "response time");
            report->SetMulti("UPV" + host::Str(n), averageTime);
            lastAverageTime = averageTime;
        }
        report->SetMulti("addr", reportAddress());
        AmbrelisSupport::AmbrelisSocket->SendCommand(report);
    }
    firstScan = false;
}

void cDevice::badPing() {
    const host::Date now;
    if (Globals::DebugMode) {
        Globals::writelog("ping to " + MyIPAddress + " failed", 2);
    }
    if (available || firstScan) {
        const bool graceOver = LastGoodPing.IsNil() ||
                               now.TotalSeconds() - LastGoodPing->TotalSeconds() > kArpGraceSeconds;
        // A unit host gets no grace. The OFF goes out before available clears, so a failed
        // send is tried again at the next bad ping.
        if (!useArpTiming || graceOver) {
            SendOFFCommand(firstScan);
            available = false;
        }
    }
    firstScan = false;
}
