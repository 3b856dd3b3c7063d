// One delivery of bytes from the controller, cut and dispatched as the driver does it. The
// socket is never connected, so replies are dropped and log lines go to standard output. The
// scanner's sweep never runs: unit lists are read and MAC units answered, but no child starts.
#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "core/App.h"
#include "core/Globals.h"
#include "host/EventPump.h"
#include "host/ExceptionWrapper.h"
#include "link/AmbrelisSupport.h"
#include "link/cAmbrelisDeviceSocket.h"
#include "scan/cScanner.h"

namespace {

// A partial common message keeps the cutter turning by design. Each pass either cuts at least
// one byte or leaves everything as it was, so once the input's bytes are used up only the same
// pass would follow: a few of those show the loop, and the bound ends it.
constexpr std::uint64_t kRepeatedPasses = 3;
// A failure that reaches the guard leaves the rest in the buffer until the next delivery;
// that many empty deliveries follow, so the frames behind it are worked on too.
constexpr int kMaxRedeliveries = 16;

App& app() {
    static App instance;
    return instance;
}

void freshDriver() {
    Globals::DoQuit = false;
    Globals::DebugMode = false;
    Globals::outstandingPings = 0;
    AmbrelisSupport::gSignalStrength = 0;
    AmbrelisSupport::AmbrelisSocket = host::New<cAmbrelisDeviceSocket>();
    Globals::gScanner = host::New<cScanner>();
    Globals::gScanner->Constructor();
}

// As the socket's data event does, under the host's wrapper; false when the guard took a
// failure.
bool deliver(cAmbrelisDeviceSocket& socket, const host::String& bytes) {
    return host::ExceptionWrapper::run([&] {
        // What the socket asks of the link before it hands bytes over.
        (void)socket.bytesShortOfWholeMessage(bytes.view());
        socket.appendToBuffer(bytes);
        socket.cutStream(socket.Buffer().size() + kRepeatedPasses);
    });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    App::wireLayers();
    // Failures that leave the handler go to the application's guard, as in the driver.
    host::ExceptionWrapper::setHandler(
        [](const host::RuntimeException& err) { return app().Event_UnhandledException(err); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    freshDriver();
    const host::Ref<cAmbrelisDeviceSocket> socket = AmbrelisSupport::AmbrelisSocket;
    bool ranToEnd = deliver(*socket, fuzz::bytes(data, size));
    for (int i = 0; i < kMaxRedeliveries && !ranToEnd; ++i) {
        ranToEnd = deliver(*socket, host::String());
    }

    // Nothing may have started a child or touched a socket of the pump.
    fuzz::require(host::EventPump::instance().watchCount() == 0 &&
                      host::EventPump::instance().postedCount() == 0,
                  "a delivery left work in the event pump");
    fuzz::require(Globals::outstandingPings == 0, "a delivery started a ping");

    Globals::gScanner = nullptr;
    AmbrelisSupport::AmbrelisSocket = nullptr;
    return 0;
}
