#pragma once

#include "host/Ref.h"
#include "host/String.h"

class cAmbrelisCommand;

namespace CommandSupportModule {

// A carriage return, set when the link is opened; nothing reads it.
inline host::String cr;

// Acts on one whole message from the controller.
void HandleIncomingCommand(const host::Ref<cAmbrelisCommand>& cmd);

}  // namespace CommandSupportModule
