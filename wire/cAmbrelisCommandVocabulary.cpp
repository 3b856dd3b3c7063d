// House and unit codes, and the texts of the command and error codes.
#include <vector>

#include "host/StringFunctions.h"
#include "wire/cAmbrelisCommand.h"
#include "wire/objCommandSupport.h"

namespace {

struct CodeRow {
    host::String code;
    const char* description;
};

// Rows are tried from the first down; the first match wins, so later duplicates never answer.
const char* describe(const std::vector<CodeRow>& rows, const host::String& code) {
    for (const CodeRow& row : rows) {
        if (row.code == code) {
            return row.description;
        }
    }
    return nullptr;
}

const std::vector<CodeRow> kNinjaCommands = {{"L", "center"},     {"M", "center with program"},
                                             {"`", "pan left"},   {"A", "pan right"},
                                             {"D", "position 1"}, {"E", "program position 1"},
                                             {"F", "position 2"}, {"G", "program position 2"},
                                             {"H", "position 3"}, {"I", "program position 3"},
                                             {"J", "position 4"}, {"K", "program position 4"},
                                             {"N", "sweep"},      {"O", "program sweep"},
                                             {"C", "tilt down"},  {"B", "tilt up"}};

const std::vector<CodeRow> kControlCommands = {{"O", "Open a Port"},
                                               {"C", "Close a port"},
                                               {"R", "R"},
                                               {"P", "Ping"},
                                               {"Q", "polite interface shutdown command"},
                                               {"D", "Toggle the Debug State"},
                                               {"X", "Send Raw Data"},
                                               {"A", "Turn off monitor mode"},
                                               {"B", "Set base house code for LynxX-Port"},
                                               {"S", "Sample All Analogs"},
                                               {"M", "Turn ON monitor only mode"},
                                               {"F", "Set time filter for de-bouncing"},
                                               {"G", "Disable Wireless security events"},
                                               {"I", "Resume normal wireless processing"},
                                               {"E", "Enable Wireless security events"},
                                               {"H", "Enable Wireless Stealth Mode"},
                                               {"P", "Ping"},
                                               {"V", "Set receiver sensitivity"},
                                               {"L", "Set transmitter output amplitude"}};

using namespace objCommandSupport;
const std::vector<CodeRow> kUnitCommands = {{"0", "All Units Off"},
                                            {"1", "All Lights On"},
                                            {"2", "ON"},
                                            {"3", "OFF"},
                                            {"4", "DIM"},
                                            {"5", "BRIGHT"},
                                            {"6", "All Lights Off"},
                                            {"7", "Extended Code"},
                                            {"8", "Hail Request"},
                                            {"9", "Hail Ack"},
                                            {"A", "Preset Dim 0"},
                                            {"B", "Preset Dim 1"},
                                            {"C", "Extended Data"},
                                            {"D", "Status On"},
                                            {"E", "Status Off"},
                                            {"F", "Status Request"},
                                            {kCommSecurityMinSafe, "Safe Condition"},
                                            {kCommSecurityMinAlarm, "Alarm Condition"},
                                            {kCommSecurityMaxSafe, "Safe Condition"},
                                            {kCommSecurityMaxAlarm, "Alarm Condition"},
                                            {kCommSecurityMotion, "MOTION"},
                                            {kCommSecurityNoMotion, "no motion"}};

const std::vector<CodeRow> kErrorCodes = {{"1", "Powerline reception error"},
                                          {"2", "Bad command received from Mac"},
                                          {"3", "Bad data received from Mac"},
                                          {"4", "X10 collision detected during transmission"},
                                          {"5", "Powerline transmission failure (time out)"},
                                          {"6", "Lost transmission echoes from TW523"},
                                          {"7", "Receive overrun of data from Mac"},
                                          {"8", "Power Failure at controller"},
                                          {"9", "Power restored at controller"}};

host::String firstByteHex(const host::String& code) {
    return host::Hex(host::AscB(code));
}

// House letters A to P count from 0 to 15, held as one hexadecimal digit.
constexpr std::int64_t kHouseCount = 16;

}  // namespace

host::String cAmbrelisCommand::GetHouseCode() const {
    return host::Chr(host::truncateToInt64(host::Val("&h" + Address1)) + 'A');
}

void cAmbrelisCommand::SetHouseCode(const host::String& letter) {
    for (std::int64_t house = 0; house < kHouseCount; ++house) {
        if (letter == host::Chr('A' + house)) {
            Address1 = host::Hex(house);
            return;
        }
    }
}

host::String cAmbrelisCommand::GetUnitCode() const {
    return host::Format(host::Val("&h" + Address2) + 1, "#");
}

void cAmbrelisCommand::SetUnitCode(std::int64_t unit) {
    Address2 = host::Hex(unit - 1);
}

host::String cAmbrelisCommand::GetCommandCodeDescription() const {
    if (Header == "N") {
        const char* text = describe(kNinjaCommands, Command);
        return text != nullptr ? host::String(text)
                               : "UNKNOWN Ninja command (" + firstByteHex(Command) + ")";
    }
    if (fCCM) {
        const char* text = describe(kControlCommands, Command);
        return text != nullptr ? text : "Unknown CCM code";
    }
    const char* text = describe(kUnitCommands, Command);
    return text != nullptr ? host::String(text)
                           : "UNKNOWN COMMAND CODE: (" + Command + ") 0x" + firstByteHex(Command);
}

host::String cAmbrelisCommand::GetErrorCodeDescription() const {
    const char* text = describe(kErrorCodes, Code);
    return text != nullptr ? host::String(text)
                           : "UNKNOWN ERROR CODE: (" + Code + ") 0x" + firstByteHex(Code);
}
