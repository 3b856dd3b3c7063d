// What a sweep costs the link and the driver. The neighbour fill's own CPU, in this process
// with a fake fping; and, on a /24 of six hosts in network namespaces with the real tools (root
// only), how long the link goes unserved per sweep while a controller asks "ping" every 10 ms.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "BridgedNetwork.h"
#include "Counters.h"
#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "InNamespace.h"
#include "LoopbackServer.h"
#include "MultiPacketReader.h"
#include "ReceivedMessages.h"
#include "host/ConsoleApplication.h"
#include "host/Ref.h"
#include "host/Shell.h"
#include "scan/LocalNetworks.h"
#include "scan/SystemTools.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using LocalNetworks::Lan;

constexpr std::uint32_t kTen = 10U << 24;

// One fill per iteration: the interfaces read, the blocks made, one tool started per block and
// its end handled. The children's own CPU is theirs, not ours.
void BM_NeighbourFill(benchmark::State& state, std::vector<Lan> lans) {
    testsupport::FakeNetwork network;
    auto fill = host::New<host::Shell>();
    for (auto _ : state) {
        benchmark::DoNotOptimize(LocalNetworks::current());
        SystemTools::startFill(*fill, LocalNetworks::fillRanges(lans));
        while (fill->IsRunning()) {
            host::ConsoleApplication::DoEvents(5);
        }
    }
    state.counters["cpu_ms_per_fill"] = benchcounters::millisecondsEach(state);
}
BENCHMARK_CAPTURE(BM_NeighbourFill, one_24, std::vector<Lan>{{kTen, 24}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NeighbourFill, three_24,
                  std::vector<Lan>{{kTen, 24}, {kTen + 256, 24}, {kTen + 512, 24}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NeighbourFill, one_22, std::vector<Lan>{{kTen, 22}})
    ->Unit(benchmark::kMillisecond);

// Length of the union of the intervals, each [sent, answered].
double unionSeconds(std::vector<std::pair<Clock::time_point, Clock::time_point>> spans) {
    std::sort(spans.begin(), spans.end());
    double total = 0;
    Clock::time_point end{};
    for (const auto& [from, to] : spans) {
        const Clock::time_point start = std::max(from, end);
        if (to > start) {
            total += std::chrono::duration<double>(to - start).count();
            end = to;
        }
    }
    return total;
}

// The driver process on six hosts of a /24 (one of them its gateway), kernel defaults, through
// its first two sweeps. A "ping" whose answer took over 100 ms waited for the link: the union
// of those waits within a sweep is what that sweep kept the link unserved.
void BM_LinkUnservedPerSweep(benchmark::State& state) {
    std::vector<BridgedNetwork::Host> plan;
    for (int i = 1; i <= 6; ++i) {
        const std::string number = std::to_string(i);
        plan.push_back({i == 1 ? "gateway" : "host" + number, 0, "10.99.0." + number,
                        "02:00:00:00:01:0" + number, true});
    }
    BridgedNetwork network(plan);
    if (!network.whyNot().empty()) {
        state.SkipWithError(("no network of namespaces: " + network.whyNot()).c_str());
        return;
    }
    const InNamespace inDriver(network.namespacePath("driver"));
    double worst = 0;
    for (auto _ : state) {
        testsupport::LoopbackServer server;
        testsupport::ReceivedMessages received(server);
        testsupport::DriverProcess driver({"", "127.0.0.1", std::to_string(server.port()), "b"});
        server.accept();
        server.send(testsupport::multiPacket({{"mcmd", "debug"}, {"Valu", "true"}}));
        std::vector<Clock::time_point> sweeps;
        std::deque<Clock::time_point> unanswered;
        std::vector<std::pair<Clock::time_point, Clock::time_point>> waits;
        const auto started = Clock::now();
        auto nextPing = started;
        // A sweep of a /24 is over well within 15 s of its start.
        const auto window = 15s;
        while (Clock::now() - started < 60s &&
               (sweeps.size() < 2 || Clock::now() - sweeps.back() < window)) {
            if (Clock::now() >= nextPing) {
                server.send(testsupport::multiPacket({{"mcmd", "ping"}}));
                unanswered.push_back(Clock::now());
                nextPing += 10ms;
            }
            for (const std::string& message : received.take(1, 5ms)) {
                if (message == "mcmd=PSrp" && !unanswered.empty()) {
                    if (Clock::now() - unanswered.front() > 100ms) {
                        waits.emplace_back(unanswered.front(), Clock::now());
                    }
                    unanswered.pop_front();
                } else if (message.ends_with("DATA=begin arp scan")) {
                    sweeps.push_back(Clock::now());
                }
            }
        }
        server.send(testsupport::multiPacket({{"mcmd", "close"}}));
        driver.waitForExit(10s);
        for (const Clock::time_point begun : sweeps) {
            std::vector<std::pair<Clock::time_point, Clock::time_point>> inSweep;
            for (const auto& wait : waits) {
                if (wait.second > begun && wait.first < begun + window) {
                    inSweep.push_back(wait);
                }
            }
            worst = std::max(worst, unionSeconds(inSweep));
        }
        state.counters["sweeps"] = static_cast<double>(sweeps.size());
    }
    state.counters["unserved_s_per_sweep"] = worst;
}
BENCHMARK(BM_LinkUnservedPerSweep)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
