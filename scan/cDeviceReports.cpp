#include "core/Globals.h"
#include "host/StringFunctions.h"
#include "link/AmbrelisSupport.h"
#include "scan/ArpLine.h"
#include "scan/cDevice.h"
#include "scan/cScanner.h"
#include "wire/cAmbrelisCommand.h"

using host::String;

void cDevice::SendONCommand(bool asUpdate) {
    sendPresence("ON", asUpdate);
}

void cDevice::SendOFFCommand(bool asUpdate) {
    sendPresence("OFF", asUpdate);
}

void cDevice::sendPresence(const char* word, bool asUpdate) {
    auto cmd = host::New<cAmbrelisCommand>();
    cmd->Constructor();
    if (Globals::DebugMode) {
        // The line asks for a unit, the message for the kind; for every device made they agree.
        if (myUnit) {
            Globals::writelog("sending " + String(word) + " for unit " +
                                  myUnit->GetStringValue("Name") +
                                  " at address: " + myUnit->GetStringValue("Address"),
                              4);
        } else {
            Globals::writelog("sending " + String(word) + " for address " +
                                  (MyMacAddress.empty() ? MyIPAddress : MyMacAddress),
                              4);
        }
    }
    cmd->SetMulti("mcmd", word);
    cmd->SetMulti("addr", reportAddress());
    if (asUpdate) {
        cmd->SetMulti("UpDt", "true");
    }
    AmbrelisSupport::AmbrelisSocket->SendCommand(cmd);
}

void cDevice::LoadFromArpLine(const String& line) {
    MyIPAddress = ArpLine::ipAddress(line);
    // The scanner's own cut: the key the device stands under.
    MyMacAddress = ArpLine::hardwareAddress(line);
    if (Globals::DebugMode) {
        Globals::writelog(
            "arp device found with IP: " + MyIPAddress + " and MAC of: " + MyMacAddress, 2);
    }
    useArpTiming = true;
}

void cDevice::loadFromAmbrelisUnit(const host::Ref<CXML>& unit) {
    myUnit = unit;
    MyIPAddress = unit->GetStringValue("Address");
    // The device enters itself, under the unit's id as a number.
    Globals::gScanner->HostDict->SetValue(
        unit->GetDoubleValue("uniqueid"),
        host::Ref<cDevice>(std::static_pointer_cast<cDevice>(shared_from_this())));
    useArpTiming = false;
}
