// What reading the kernel's neighbour table costs the driver: its own read over rtnetlink against
// the synchronous run of `arp -a -n` that it replaced, on a table of 1,000 entries in a network
// of the benchmark's own (root, to enter it). Both ways take turns in one loop, so that the
// machine's noise falls on both alike.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <string>
#include <vector>

#include "InNamespace.h"
#include "PrivateNetwork.h"
#include "host/Ref.h"
#include "host/Shell.h"
#include "scan/NeighbourTable.h"

namespace {

constexpr int kEntries = 1000;

std::vector<testsupport::PrivateNetwork::Neighbour> neighbours() {
    std::vector<testsupport::PrivateNetwork::Neighbour> table;
    for (int i = 0; i < kEntries; ++i) {
        char mac[18];
        std::snprintf(mac, sizeof mac, "02:00:00:00:%02x:%02x", i / 250, i % 250 + 1);
        table.push_back(
            {"10.20." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1), mac});
    }
    return table;
}

// CPU seconds, user and system, of this process or of its children that have been reaped.
double cpuSeconds(int who) {
    rusage usage{};
    ::getrusage(who, &usage);
    const auto total = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return total(usage.ru_utime) + total(usage.ru_stime);
}

std::size_t linesOf(const std::string& text) {
    std::size_t lines = 0;
    for (const char c : text) {
        lines += c == '\n';
    }
    return lines;
}

// Per iteration, one read each way. The figures are microseconds of CPU per read: this
// process's for each way, and for arp also the tool's own.
void BM_NeighbourTableRead(benchmark::State& state) {
    testsupport::PrivateNetwork lan("10.20.3.254/22", neighbours());
    const std::string inside = lan.whyNot().empty() ? lan.hold() : "";
    const InNamespace entered(inside);
    if (!entered.entered()) {
        state.SkipWithError(("no network of our own to enter: " + lan.whyNot()).c_str());
        return;
    }
    // Found as the driver finds its tools: through PATH, then in the system folders.
    auto shell = host::New<host::Shell>();
    shell->executeArguments("arp", {"-a", "-n"});
    const bool hasArp = shell->ErrorCode() != 127;
    double netlink = 0, byArp = 0, inArp = 0;
    std::size_t netlinkLines = 0, arpLines = 0;
    for (auto _ : state) {
        double before = cpuSeconds(RUSAGE_SELF);
        const NeighbourTable::Reading reading = NeighbourTable::read();
        netlink += cpuSeconds(RUSAGE_SELF) - before;
        netlinkLines = reading.lines.size();
        if (!hasArp) {
            continue;
        }
        before = cpuSeconds(RUSAGE_SELF);
        const double childBefore = cpuSeconds(RUSAGE_CHILDREN);
        shell->executeArguments("arp", {"-a", "-n"});
        arpLines = linesOf(shell->Result().bytes());
        byArp += cpuSeconds(RUSAGE_SELF) - before;
        inArp += cpuSeconds(RUSAGE_CHILDREN) - childBefore;
    }
    const auto each = [&state](double total) {
        return total * 1e6 / static_cast<double>(state.iterations());
    };
    state.counters["entries_read"] = static_cast<double>(netlinkLines);
    state.counters["netlink_cpu_us_per_read"] = each(netlink);
    if (!hasArp) {
        state.SetLabel("arp not installed");
        return;
    }
    state.counters["arp_lines"] = static_cast<double>(arpLines);
    state.counters["arp_cpu_us_per_read"] = each(byArp);
    state.counters["arp_child_cpu_us_per_read"] = each(inArp);
    // Under 1 where netlink costs less than the arp run did.
    state.counters["netlink_over_arp"] = netlink / byArp;
    state.counters["netlink_over_arp_in_all"] = netlink / (byArp + inArp);
}
BENCHMARK(BM_NeighbourTableRead)->Iterations(500)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
