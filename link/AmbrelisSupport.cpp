#include "link/AmbrelisSupport.h"

#include "host/Clock.h"
#include "host/ConsoleApplication.h"
#include "host/StringFunctions.h"
#include "link/CommandSupportModule.h"

namespace AmbrelisSupport {

namespace {

const char* const kDefaultAddress = "127.0.0.1";
constexpr std::int64_t kDefaultPort = 20300;
constexpr std::int64_t kTicksPerSecond = 60;
constexpr std::int64_t kWaitTurnMilliseconds = 10;

}  // namespace

void OpenAmbrelisConnection(const host::String& address, std::int64_t port,
                            const host::String& connectionID) {
    if (AmbrelisSocket) {
        if (AmbrelisSocket->IsConnected()) {
            AmbrelisSocket->Close();
        }
        AmbrelisSocket = nullptr;
    }
    AmbrelisSocket = host::New<cAmbrelisDeviceSocket>();
    CommandSupportModule::cr = host::Chr(13);
    AmbrelisSocket->Address = address == "" ? host::String(kDefaultAddress) : address;
    AmbrelisSocket->Port = port == 0 ? kDefaultPort : port;
    AmbrelisSocket->ConnectionID = connectionID;
    AmbrelisSocket->Connect();
}

bool WaitForAmbrelisConnection(std::int64_t timeoutSeconds) {
    const auto start = static_cast<double>(host::Ticks());
    const auto limit = static_cast<double>(timeoutSeconds * kTicksPerSecond);
    // A refused connection never turns connected, so the wait then runs to its limit.
    while (!AmbrelisSocket->IsConnected() && limit > static_cast<double>(host::Ticks()) - start) {
        host::ConsoleApplication::DoEvents(kWaitTurnMilliseconds);
        AmbrelisSocket->Poll();
    }
    return AmbrelisSocket->IsConnected();
}

void ErrorPacketReceived(const cAmbrelisCommand& /*cmd*/) {}

void LogCommandReceived(const cAmbrelisCommand& /*cmd*/) {}

}  // namespace AmbrelisSupport
