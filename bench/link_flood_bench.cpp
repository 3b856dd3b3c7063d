// The driver as a process against a controller that floods it or stops reading: whether every
// "ping" of a 10 MB flood is answered and how fast, what the driver holds while the controller
// reads nothing, and what the endless loop of a lone byte costs. Each iteration is one run of
// the driver, with the fake `ping` and `arp` first on PATH.
#include <benchmark/benchmark.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "LoopbackServer.h"
#include "MultiPacketReader.h"
#include "ProcessStats.h"
#include "StreamTally.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

const std::string kPing = testsupport::multiPacket({{"mcmd", "ping"}});
constexpr std::size_t kFloodBytes = 10'000'000;
// A driver that answers nothing for this long is taken to be stuck.
constexpr auto kStuckAfter = 4s;

// One driver and the controller's end of its link.
struct Run {
    Run() : driver({"", "127.0.0.1", std::to_string(server.port()), "bench"}) {}

    // Whether the driver connected; when not, the benchmark stops with an error.
    bool connected(benchmark::State& state) {
        if (server.accept(5s)) {
            return true;
        }
        state.SkipWithError("the driver did not connect");
        return false;
    }
    // Reads nothing for `wait`, noting the driver's resident memory.
    void stall(std::chrono::milliseconds wait) {
        for (const auto until = Clock::now() + wait; Clock::now() < until;) {
            std::this_thread::sleep_for(20ms);
            peakKb = std::max(peakKb, testsupport::residentKilobytes(driver.pid()));
        }
    }
    // Reads what has come within `wait`, and notes the driver's resident memory.
    void take(std::chrono::milliseconds wait) {
        tally.feed(server.receive(wait));
        peakKb = std::max(peakKb, testsupport::residentKilobytes(driver.pid()));
    }
    // Reads until `answers` have come; false when they stop coming first.
    bool answered(std::size_t answers) {
        auto progressAt = Clock::now();
        std::size_t seen = tally.answers;
        while (tally.answers < answers) {
            take(20ms);
            if (tally.answers != seen) {
                seen = tally.answers;
                progressAt = Clock::now();
            } else if (Clock::now() - progressAt > kStuckAfter) {
                return false;
            }
        }
        return true;
    }

    testsupport::LoopbackServer server;
    testsupport::DriverProcess driver;
    testsupport::StreamTally tally;
    long peakKb = 0;
};

std::string pingFlood(std::size_t bytes) {
    std::string flood;
    flood.reserve(bytes);
    for (std::size_t i = 0; i < bytes / kPing.size(); ++i) {
        flood += kPing;
    }
    return flood;
}

// How the controller writes the flood: all at once, in writes of 1 to 4,096 whole messages as a
// controller does, or cut at any byte into pieces of up to 64 KB, which no controller does.
enum class Pieces { OneWrite, WholeMessages, AnyByte };

void send(testsupport::LoopbackServer& server, const std::string& flood, Pieces pieces,
          std::mt19937& random) {
    if (pieces == Pieces::OneWrite) {
        server.send(flood);
        return;
    }
    for (std::size_t at = 0; at < flood.size();) {
        std::size_t piece =
            pieces == Pieces::WholeMessages
                ? kPing.size() * std::uniform_int_distribution<std::size_t>(1, 4096)(random)
                : std::uniform_int_distribution<std::size_t>(1, 65536)(random);
        piece = std::min(piece, flood.size() - at);
        server.send(flood.substr(at, piece));
        at += piece;
    }
}

void BM_FloodAnswered(benchmark::State& state) {
    const auto pieces = static_cast<Pieces>(state.range(0));
    testsupport::FakeNetwork network;
    const std::string flood = pingFlood(kFloodBytes);
    std::mt19937 random(15);
    double answeredRuns = 0;
    double worstSeconds = 0;
    for (auto _ : state) {
        Run run;
        if (!run.connected(state)) {
            return;
        }
        const auto start = Clock::now();
        std::thread controller([&] { send(run.server, flood, pieces, random); });
        const bool answered = run.answered(flood.size() / kPing.size());
        const std::chrono::duration<double> took = Clock::now() - start;
        if (answered) {
            ++answeredRuns;
            worstSeconds = std::max(worstSeconds, took.count());
        } else {
            // A stuck driver no longer reads: ending it lets the controller's write return.
            ::kill(run.driver.pid(), SIGKILL);
        }
        controller.join();
    }
    state.counters["answered_runs"] = answeredRuns;
    state.counters["stuck_runs"] = static_cast<double>(state.iterations()) - answeredRuns;
    state.counters["worst_answered_s"] = worstSeconds;
}
BENCHMARK(BM_FloodAnswered)
    ->ArgName("pieces")
    ->Arg(static_cast<int>(Pieces::OneWrite))
    ->Arg(static_cast<int>(Pieces::WholeMessages))
    ->Arg(static_cast<int>(Pieces::AnyByte))
    ->Iterations(20)
    ->Unit(benchmark::kSecond);

// 50 MB of "ping" in one write, then ten seconds without reading, then reading.
void BM_StalledController(benchmark::State& state) {
    testsupport::FakeNetwork network;
    const std::string flood = pingFlood(50'000'000);
    long peakKb = 0;
    double answeredRuns = 0;
    for (auto _ : state) {
        Run run;
        if (!run.connected(state)) {
            return;
        }
        std::thread controller([&] { run.server.send(flood); });
        run.stall(10s);
        const bool answered = run.answered(flood.size() / kPing.size());
        answeredRuns += answered ? 1 : 0;
        peakKb = std::max(peakKb, run.peakKb);
        ::kill(run.driver.pid(), SIGKILL);
        controller.join();
    }
    state.counters["answered_runs"] = answeredRuns;
    state.counters["peak_rss_mb"] = static_cast<double>(peakKb) / 1024.0;
}
BENCHMARK(BM_StalledController)->Iterations(3)->Unit(benchmark::kSecond);

// A lone byte: the cutter logs the malformed line forever. Ten seconds without reading, then
// five of reading.
void BM_EmptyFrameLoop(benchmark::State& state) {
    testsupport::FakeNetwork network;
    for (auto _ : state) {
        Run run;
        if (!run.connected(state)) {
            return;
        }
        run.server.send("Q");
        run.stall(10s);
        const auto readingFrom = Clock::now();
        while (Clock::now() - readingFrom < 5s) {
            run.take(20ms);
        }
        state.counters["peak_rss_mb"] = static_cast<double>(run.peakKb) / 1024.0;
        state.counters["lines_per_s_read"] = static_cast<double>(run.tally.malformed) / 5.0;
        state.counters["drop_notes"] = static_cast<double>(run.tally.dropNotes);
    }
}
BENCHMARK(BM_EmptyFrameLoop)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
