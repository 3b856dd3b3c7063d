#include "scan/cScanner.h"

#include <utility>

#include "core/Globals.h"
#include "host/Date.h"
#include "host/EventPump.h"
#include "host/StringFunctions.h"
#include "scan/ArpLine.h"

using host::String;

namespace {

// An arp host that has been silent for longer than this is forgotten.
constexpr double kForgetArpHostSeconds = 3600.0;
// A present unit host is pinged again only after this long.
constexpr double kRepingUnitHostSeconds = 300.0;

// Pings every host that is due and forgets arp hosts silent for too long.
void pingWhatIsDue(const host::Ref<host::Dictionary<host::Ref<cDevice>>>& hosts) {
    const host::Date now;
    // DoPing may pump, and handlers then add and remove keys: walk a snapshot, test each key
    // before use, and hold no device across keys.
    const auto keys = hosts->Keys();
    for (const auto& key : keys) {
        if (!hosts->HasKey(key)) {
            continue;
        }
        const host::Ref<cDevice> device = hosts->Value(key);
        if (device->useArpTiming) {
            device->DoPing();
            // The state of earlier pings: the one just started has not ended.
            if (!device->available && device->LastGoodPing &&
                now.TotalSeconds() - device->LastGoodPing->TotalSeconds() > kForgetArpHostSeconds) {
                hosts->Remove(key);
            }
        } else {
            const bool due =
                device->lastPing.IsNil() ||
                (device->available &&
                 now.TotalSeconds() - device->lastPing->TotalSeconds() > kRepingUnitHostSeconds) ||
                !device->available;
            if (due) {
                if (Globals::DebugMode) {
                    Globals::writelog("pinging remote host:  " + device->MyIPAddress, 2);
                }
                device->DoPing();
            }
        }
    }
}

}  // namespace

void cScanner::Constructor() {
    HostDict = host::New<host::Dictionary<host::Ref<cDevice>>>();
}

void cScanner::DoScan() {
    if (Globals::DebugMode) {
        Globals::writelog("begin arp scan", 1);
    }
    if (std::exchange(firstSweep_, false)) {
        held_.emplace();
    }
    // Only a table the fill is done with shows every host that is there.
    fill_.waitUntilOver();
    const NeighbourTable::Reading table = readNeighbours();
    // Posted, they run at the next turn of the pump, after the lines are entered.
    if (held_) {
        for (auto& command : *held_) {
            host::EventPump::instance().post(std::move(command));
        }
        held_.reset();
    }
    tell(table.complaints);
    enterArpLines(table.lines);
    pingWhatIsDue(HostDict);
}

bool cScanner::heldForTheFirstTable(std::function<void()> command) {
    if (!held_) {
        return false;
    }
    held_->push_back(std::move(command));
    return true;
}

String cScanner::GetMacAddress(const String& line) {
    return ArpLine::hardwareAddress(line);
}

void cScanner::enterArpLines(const std::vector<String>& lines) {
    for (const String& line : lines) {
        const String mac = GetMacAddress(line);
        if (mac.empty() || mac == "ff:ff:ff:ff:ff:ff" || mac == "(incomplete)") {
            continue;
        }
        if (Globals::DebugMode) {
            Globals::writelog("arp line (" + host::Trim(line) + ") parsed MAC (" + mac + ")", 2);
        }
        if (HostDict->HasKey(mac)) {
            HostDict->Value(mac)->LoadFromArpLine(line);
        } else {
            // Entered before it is loaded; its first ping comes with the pass below.
            auto device = host::New<cDevice>();
            HostDict->SetValue(mac, device);
            device->LoadFromArpLine(line);
        }
    }
}

void cScanner::tell(const std::vector<NeighbourTable::Complaint>& complaints) {
    for (const NeighbourTable::Complaint& complaint : complaints) {
        if (told_.insert(complaint.problem).second) {
            Globals::writelog(String(complaint.text), 4);
        }
    }
}
