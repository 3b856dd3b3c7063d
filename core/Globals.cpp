#include "core/Globals.h"

#include "host/Print.h"
#include "host/StringFunctions.h"
#include "link/AmbrelisSupport.h"
#include "wire/cAmbrelisCommand.h"

namespace Globals {

void writelog(const host::String& text, std::int64_t level) {
    auto& socket = AmbrelisSupport::AmbrelisSocket;
    if (socket && socket->IsConnected()) {
        auto cmd = host::New<cAmbrelisCommand>();
        cmd->Constructor();
        cmd->SetMulti("mcmd", "WrtL");
        cmd->SetMulti("Valu", host::Str(level));
        cmd->SetMulti("DATA", text);
        socket->SendLogLine(cmd);
    } else {
        host::Print(text);
    }
}

}  // namespace Globals
