// The cutter and the dispatcher on one delivery of many small messages, the writes of the
// answers to the controller included.
#include <benchmark/benchmark.h>
#include <signal.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "Counters.h"
#include "LoopbackServer.h"
#include "core/App.h"
#include "core/Globals.h"
#include "host/EventPump.h"
#include "link/AmbrelisSupport.h"
#include "wire/cAmbrelisCommand.h"

namespace {

using namespace std::chrono_literals;

std::string rawOf(const host::Ref<cAmbrelisCommand>& cmd) {
    return cmd->GetRawCommand().bytes();
}

std::string pingRequest() {
    auto cmd = host::New<cAmbrelisCommand>();
    cmd->Constructor();
    cmd->SetMulti("mcmd", "ping");
    return rawOf(cmd);
}

std::string controlMessage(const char* command) {
    auto cmd = host::New<cAmbrelisCommand>();
    cmd->Constructor();
    cmd->SetFlag("&h40");
    cmd->SetCommand(command);
    return rawOf(cmd);
}

// Half "ping" (each answered with "PSrp"), a quarter "D" (each logged as "WrtL") and a quarter
// "X" (no answer). An even count of "D" leaves debug mode as it was.
std::string mixedDelivery(int count) {
    const std::string ping = pingRequest();
    const std::string toggle = controlMessage("D");
    const std::string nothing = controlMessage("X");
    std::string delivery;
    for (int i = 0; i < count; ++i) {
        delivery += i % 2 == 0 ? ping : (i % 4 == 1 ? toggle : nothing);
    }
    return delivery;
}

void BM_CutAndDispatchDelivery(benchmark::State& state) {
    constexpr int kMessages = 10000;
    testsupport::LoopbackServer server;
    AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "bench");
    if (!AmbrelisSupport::WaitForAmbrelisConnection(2) || !server.accept()) {
        state.SkipWithError("no loopback link");
        return;
    }
    auto& socket = *AmbrelisSupport::AmbrelisSocket;
    const host::String delivery(mixedDelivery(kMessages));
    std::uint64_t answered = 0;
    for (auto _ : state) {
        socket.appendToBuffer(delivery);
        socket.cutStream(UINT64_MAX);
        while (socket.BytesLeftToSend() > 0) {
            host::EventPump::instance().run(0);
            answered += server.receive(0ms).size();
        }
    }
    answered += server.receive(50ms).size();
    state.counters["messages_per_s"] = benchcounters::perSecond(state, kMessages);
    state.counters["answer_bytes_per_delivery"] =
        static_cast<double>(answered) / static_cast<double>(state.iterations());
    AmbrelisSupport::AmbrelisSocket = nullptr;
    host::EventPump::instance().run(0);
}
BENCHMARK(BM_CutAndDispatchDelivery)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    App::wireLayers();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
