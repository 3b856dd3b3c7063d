#pragma once

#include <cstdint>

#include "host/Ref.h"
#include "host/String.h"

class cScanner;

// The process-wide state of the driver. Everything runs on the one main thread inside the
// pump, so none of it needs a lock.
namespace Globals {

inline bool DebugMode = false;
// Read only at the head of the main loop.
inline bool DoQuit = false;
inline host::Ref<cScanner> gScanner;
// Pings started and not yet ended, over all devices.
inline std::int64_t outstandingPings = 0;

// The driver's one log call: to the controller while the link stands, else to standard output
// without the level. Nothing is queued for later.
void writelog(const host::String& text, std::int64_t level);

}  // namespace Globals
