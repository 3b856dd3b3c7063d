#include "link/CommandSupportModule.h"

#include "core/Globals.h"
#include "link/AmbrelisSupport.h"
#include "scan/cScanner.h"
#include "wire/cAmbrelisCommand.h"

namespace CommandSupportModule {

namespace {

void HandleControlCommand(const cAmbrelisCommand& cmd) {
    if (cmd.Command == "Q") {
        Globals::writelog("The Tamsvale isf has been asked to quit. (1)", 2);
        Globals::DoQuit = true;
    } else if (cmd.Command == "P") {
        Globals::writelog("The Tamsvale isf has been asked to quit. (2)", 2);
        Globals::DoQuit = true;
    } else if (cmd.Command == "D") {
        Globals::DebugMode = !Globals::DebugMode;
        Globals::writelog(Globals::DebugMode ? "DEBUG MODE ON" : "DEBUG MODE OFF", 4);
    }
    // "X" is a known command that asks for nothing; anything else is dropped as well.
}

void HandleMultiPacketCommand(const host::Ref<cAmbrelisCommand>& cmd) {
    // A common message without the control flag has no keys, and this read raises.
    const host::String verb = cmd->GetMulti("mcmd");
    if (verb == "setUnits") {
        Globals::gScanner->gotUnitsFromAmbrelis(cmd);
    } else if (verb == "UnitDeleted") {
        Globals::gScanner->unitDeleted(cmd);
    } else if (verb == "ping") {
        auto reply = host::New<cAmbrelisCommand>();
        reply->Constructor();
        reply->SetMulti("mcmd", "PSrp");
        AmbrelisSupport::AmbrelisSocket->SendCommand(reply);
    } else if (verb == "close") {
        Globals::writelog("arp Plugin shutting down...", 2);
        Globals::DoQuit = true;
    } else if (verb == "debug") {
        const bool on = cmd->GetMulti("Valu") == "true";
        Globals::DebugMode = on;
        // The stray apostrophe is part of the line the controller knows.
        Globals::writelog(
            on ? "arp plugin debug mode is now on" : "arp plugin debug mode is now off'", 2);
    }
}

}  // namespace

void HandleIncomingCommand(const host::Ref<cAmbrelisCommand>& cmd) {
    if (cmd->fCCM) {
        HandleControlCommand(*cmd);
    } else {
        HandleMultiPacketCommand(cmd);
    }
}

}  // namespace CommandSupportModule
