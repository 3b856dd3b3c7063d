#include "tools/sim/ControllerMessages.h"

#include "host/Ref.h"
#include "wire/cAmbrelisCommand.h"

namespace sim {

namespace {

constexpr const char* kControlFlag = "&h40";

host::Ref<cAmbrelisCommand> verb(const char* word) {
    auto cmd = host::New<cAmbrelisCommand>();
    cmd->Constructor();
    cmd->SetMulti("mcmd", word);
    return cmd;
}

}  // namespace

std::string ControllerMessages::setUnits(const host::String& data) {
    auto cmd = verb("setUnits");
    cmd->SetMulti("DATA", data);
    return cmd->GetRawCommand().bytes();
}

std::string ControllerMessages::ping() {
    return verb("ping")->GetRawCommand().bytes();
}

std::string ControllerMessages::debug(bool on) {
    auto cmd = verb("debug");
    cmd->SetMulti("Valu", on ? "true" : "false");
    return cmd->GetRawCommand().bytes();
}

std::string ControllerMessages::toggleDebug() {
    auto cmd = host::New<cAmbrelisCommand>();
    cmd->Constructor();
    // The control flag sends it down the driver's branch of one-letter commands.
    cmd->SetFlag(kControlFlag);
    cmd->SetCommand("D");
    return cmd->GetRawCommand().bytes();
}

std::string ControllerMessages::close() {
    return verb("close")->GetRawCommand().bytes();
}

}  // namespace sim
