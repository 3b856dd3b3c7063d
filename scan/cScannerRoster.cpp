#include "core/Globals.h"
#include "host/StringFunctions.h"
#include "link/AmbrelisSupport.h"
#include "scan/cScanner.h"
#include "wire/cAmbrelisCommand.h"

using host::String;

void cScanner::gotUnitsFromAmbrelis(const host::Ref<cAmbrelisCommand>& command) {
    if (heldForTheFirstTable([this, command] { gotUnitsFromAmbrelis(command); })) {
        return;
    }
    // The previous list goes before anything of the new one is read.
    ambrelisUnitXML = host::New<CXML>();
    ambrelisUnitXML->Constructor();
    ambrelisUnitXML->loadFromString(command->GetMulti("DATA"));
    const std::int64_t count = ambrelisUnitXML->GetContainerCount("unit");
    for (std::int64_t i = 1; i <= count; ++i) {
        const host::Ref<CXML> unit = ambrelisUnitXML->GetContainer("unit", i);
        const String addr = unit->GetStringValue("Address");
        if (host::InStr(addr, ":") == 0) {
            // A ping unit: its device enters itself in HostDict and is pinged by the sweep.
            const double key = unit->GetDoubleValue("uniqueid");
            host::Ref<cDevice> device;
            if (HostDict->HasKey(key)) {
                device = HostDict->Value(key);
            } else {
                Globals::writelog("creating a new ping device for unit with Address: " + addr, 2);
                device = host::New<cDevice>();
            }
            device->loadFromAmbrelisUnit(unit);
        } else {
            // A MAC unit: told at once what is known of its address, without touching the host.
            auto report = host::New<cAmbrelisCommand>();
            report->Constructor();
            if (!HostDict->HasKey(addr)) {
                report->SetMulti("mcmd", "OFF");
                report->SetMulti("addr", addr);
                report->SetMulti("UpDt", "true");
            } else {
                report->SetMulti("addr", addr);
                report->SetMulti("UpDt", "true");
                report->SetMulti("mcmd", HostDict->Value(addr)->available ? "ON" : "OFF");
            }
            AmbrelisSupport::AmbrelisSocket->SendCommand(report);
        }
    }
}

void cScanner::unitDeleted(const host::Ref<cAmbrelisCommand>& command) {
    if (heldForTheFirstTable([this, command] { unitDeleted(command); })) {
        return;
    }
    const String addr = command->GetMulti("addr");
    const double id = host::Val(command->GetMulti("UnID"));
    // A MAC unit has nothing to delete; its arp host stays.
    if (host::InStr(addr, ":") > 0) {
        return;
    }
    if (HostDict->HasKey(id)) {
        HostDict->Remove(id);
        Globals::writelog("pings will no longer be sent to: " + addr, 2);
    } else {
        Globals::writelog("a unit with address of: " + addr + " was not found to remove", 4);
    }
}
