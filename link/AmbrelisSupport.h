#pragma once

#include <cstdint>

#include "host/Ref.h"
#include "host/String.h"
#include "link/cAmbrelisDeviceSocket.h"

class cAmbrelisCommand;

// Owns the link to the controller: makes the one socket, fills in the defaults and lets the run
// loop wait for the connection.
namespace AmbrelisSupport {

inline host::Ref<cAmbrelisDeviceSocket> AmbrelisSocket;
// Last signal strength byte from the message reader; nothing reads it.
inline std::int64_t gSignalStrength = 0;

void OpenAmbrelisConnection(const host::String& address, std::int64_t port,
                            const host::String& connectionID);
// Pumps until the socket stands connected or the time is up; true if it is connected then.
bool WaitForAmbrelisConnection(std::int64_t timeoutSeconds);

// Hooks the message reader calls for error and log packets; they are kept empty.
void ErrorPacketReceived(const cAmbrelisCommand& cmd);
void LogCommandReceived(const cAmbrelisCommand& cmd);

}  // namespace AmbrelisSupport
