// The driver's own cost of presence scanning: a real driver process sweeps a neighbour table of
// 1,000 hosts whose fake ping answers at once, and reports each of them to a fake controller.
// The table is the kernel's, in a network of the benchmark's own, which takes root to enter.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "InNamespace.h"
#include "LoopbackServer.h"
#include "MultiPacketReader.h"
#include "PrivateNetwork.h"
#include "ProcessStats.h"

namespace {

constexpr int kHosts = 1000;

std::vector<testsupport::PrivateNetwork::Neighbour> neighbours() {
    std::vector<testsupport::PrivateNetwork::Neighbour> table;
    for (int i = 0; i < kHosts; ++i) {
        const int high = i / 250;
        const int low = i % 250 + 1;
        std::array<char, 18> mac{};
        std::snprintf(mac.data(), mac.size(), "02:00:00:00:%02x:%02x", high, low);
        table.push_back(
            {"10.20." + std::to_string(high) + "." + std::to_string(low), std::string(mac.data())});
    }
    return table;
}

// Counts the ON and "NoOp" messages of the stream so far.
int reportsIn(const std::string& bytes) {
    int reports = 0;
    for (const auto& message : testsupport::readControllerStream(bytes).inOrder) {
        if (message.starts_with("mcmd=ON ") || message.starts_with("mcmd=NoOp ")) {
            ++reports;
        }
    }
    return reports;
}

// One sweep per run: from "getUnits", which comes right before it, until every host has its ON
// and its first report. CPU is the driver's main thread alone; its pings are other processes.
void BM_SweepOfThousandHosts(benchmark::State& state) {
    testsupport::FakeNetwork network;
    testsupport::PrivateNetwork lan("10.20.3.254/22", neighbours());
    const std::string inside = lan.whyNot().empty() ? lan.hold() : "";
    const InNamespace entered(inside);
    if (!entered.entered()) {
        state.SkipWithError(("no network of our own to enter: " + lan.whyNot()).c_str());
        return;
    }
    network.answer("default", "up 0.050");
    std::vector<double> cpuPerPing;
    long mostResident = 0;
    for (auto _ : state) {
        testsupport::LoopbackServer server;
        testsupport::DriverProcess driver({"", "127.0.0.1", std::to_string(server.port()), "b"});
        server.accept();
        std::string bytes;
        while (bytes.find("getUnits") == std::string::npos) {
            bytes += server.receive(std::chrono::milliseconds(10));
        }
        const double cpuBefore = testsupport::cpuSeconds(driver.pid());
        const auto started = std::chrono::steady_clock::now();
        while (reportsIn(bytes) < 2 * kHosts &&
               std::chrono::steady_clock::now() - started < std::chrono::seconds(60)) {
            bytes += server.receive(std::chrono::milliseconds(50));
        }
        const double cpuUsed = testsupport::cpuSeconds(driver.pid()) - cpuBefore;
        cpuPerPing.push_back(cpuUsed * 1e6 / kHosts);
        mostResident = std::max(mostResident, testsupport::residentKilobytes(driver.pid()));
        state.counters["reports"] = reportsIn(bytes);
        state.counters["sweep_seconds"] =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    }
    // The middle of the runs for the CPU, the most for memory.
    std::sort(cpuPerPing.begin(), cpuPerPing.end());
    state.counters["driver_cpu_us_per_ping"] = cpuPerPing[cpuPerPing.size() / 2];
    state.counters["rss_kb_holding_1000"] = static_cast<double>(mostResident);
}
BENCHMARK(BM_SweepOfThousandHosts)->Iterations(3)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
