// What a sweep costs the link and the driver, and how soon it finds a host that comes. The
// neighbour fill's own CPU, in this process with a fake fping. Then, in network namespaces with
// the real tools and the kernel's defaults (root only), while a controller asks "ping" every
// 10 ms: how long the link goes unserved per sweep on a /24 of six hosts, and, on a home network
// of a /24 of 36 hosts and a /22 on a second interface, how long after a host comes the driver
// reports it ON, for six hosts that come at random moments over two and a half minutes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
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
    auto fill = host::New<host::Shell>(), broadcast = host::New<host::Shell>();
    for (auto _ : state) {
        benchmark::DoNotOptimize(LocalNetworks::current());
        SystemTools::startFill(*fill, *broadcast, LocalNetworks::fillRanges(lans));
        while (fill->IsRunning() || broadcast->IsRunning()) {
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

using Span = std::pair<Clock::time_point, Clock::time_point>;

double seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// Length of the union of the intervals, each [sent, answered].
double unionSeconds(std::vector<Span> spans) {
    std::sort(spans.begin(), spans.end());
    double total = 0;
    Clock::time_point end{};
    for (const auto& [from, to] : spans) {
        const Clock::time_point start = std::max(from, end);
        if (to > start) {
            total += seconds(to - start);
            end = to;
        }
    }
    return total;
}

// What the controller saw of one run of the driver process, debug on, asked "ping" every 10 ms.
struct Session {
    Clock::time_point started;
    // Every message, with when it came.
    std::vector<std::pair<Clock::time_point, std::string>> messages;
    // When each "begin arp scan" came.
    std::vector<Clock::time_point> sweeps;
    // Each "ping" whose answer took over 100 ms, [sent, answered]: it waited for the link.
    std::vector<Span> waits;

    // When the first message starting with `start` came, if one did.
    std::optional<Clock::time_point> first(const std::string& start) const {
        for (const auto& [when, message] : messages) {
            if (message.starts_with(start)) {
                return when;
            }
        }
        return std::nullopt;
    }
};

// Runs the driver in the calling thread's namespace for as long as `goOn` says, then closes it.
Session runDriver(const std::function<bool(const Session&)>& goOn) {
    testsupport::LoopbackServer server;
    testsupport::DriverProcess driver({"", "127.0.0.1", std::to_string(server.port()), "b"});
    Session session{Clock::now(), {}, {}, {}};
    server.accept();
    server.send(testsupport::multiPacket({{"mcmd", "debug"}, {"Valu", "true"}}));
    std::deque<Clock::time_point> unanswered;
    std::string pending;
    auto nextPing = session.started;
    while (goOn(session)) {
        if (Clock::now() >= nextPing) {
            server.send(testsupport::multiPacket({{"mcmd", "ping"}}));
            unanswered.push_back(Clock::now());
            nextPing += 10ms;
        }
        // A short read, so that when an answer came is known within 2 ms. (A limit under 2 ms
        // would wait nothing: it is cut to whole milliseconds.)
        testsupport::ControllerView view =
            testsupport::readControllerStream(pending + server.receive(2ms));
        pending = std::move(view.rest);
        for (std::string& message : view.inOrder) {
            const auto now = Clock::now();
            if (message == "mcmd=PSrp" && !unanswered.empty()) {
                if (now - unanswered.front() > 100ms) {
                    session.waits.emplace_back(unanswered.front(), now);
                }
                unanswered.pop_front();
                continue;
            }
            if (message.ends_with("DATA=begin arp scan")) {
                session.sweeps.push_back(now);
            }
            session.messages.emplace_back(now, std::move(message));
        }
    }
    server.send(testsupport::multiPacket({{"mcmd", "close"}}));
    driver.waitForExit(10s);
    return session;
}

// The link unserved around each sweep: from the start of the fill that runs ahead of it (a few
// seconds before it) to well after its last ping.
std::vector<double> unservedBySweep(const Session& session) {
    std::vector<double> unserved;
    for (const Clock::time_point begun : session.sweeps) {
        std::vector<Span> around;
        for (const Span& wait : session.waits) {
            if (wait.second > begun - 8s && wait.first < begun + 20s) {
                around.push_back(wait);
            }
        }
        unserved.push_back(unionSeconds(around));
    }
    return unserved;
}

void countUnserved(benchmark::State& state, const Session& session) {
    const std::vector<double> unserved = unservedBySweep(session);
    state.counters["sweeps"] = static_cast<double>(unserved.size());
    if (!unserved.empty()) {
        state.counters["unserved_s_first_sweep"] = unserved.front();
        state.counters["unserved_s_later_sweeps"] =
            unserved.size() > 1 ? *std::max_element(unserved.begin() + 1, unserved.end()) : 0;
        state.counters["unserved_s_per_sweep"] =
            *std::max_element(unserved.begin(), unserved.end());
    }
}

// A network of namespaces with this thread in its driver's namespace, for as long as it lives.
struct DriverLan {
    DriverLan(const std::vector<BridgedNetwork::Host>& plan, const std::vector<int>& prefixes)
        : network(plan, prefixes),
          inDriver(network.whyNot().empty() ? network.namespacePath("driver") : "") {}
    BridgedNetwork network;
    InNamespace inDriver;
};

// The network of `plan` entered, or none, and the benchmark skipped, where none can be made.
std::unique_ptr<DriverLan> enterNetwork(benchmark::State& state,
                                        const std::vector<BridgedNetwork::Host>& plan,
                                        const std::vector<int>& prefixes = {}) {
    auto lan = std::make_unique<DriverLan>(plan, prefixes);
    if (!lan->network.whyNot().empty()) {
        state.SkipWithError(("no network of namespaces: " + lan->network.whyNot()).c_str());
        return nullptr;
    }
    return lan;
}

// The driver process on six hosts of a /24 (one of them its gateway), through its first two
// sweeps. The first sweep holds the link while its fill runs; later ones find theirs over.
void BM_LinkUnservedPerSweep(benchmark::State& state) {
    std::vector<BridgedNetwork::Host> plan;
    for (int i = 1; i <= 6; ++i) {
        const std::string number = std::to_string(i);
        plan.push_back({i == 1 ? "gateway" : "host" + number, 0, "10.99.0." + number,
                        "02:00:00:00:01:0" + number, true});
    }
    const auto lan = enterNetwork(state, plan);
    if (!lan) {
        return;
    }
    for (auto _ : state) {
        // A sweep of a /24 is over well within 15 s of its start.
        countUnserved(
            state, runDriver([](const Session& session) {
                return Clock::now() - session.started < 60s &&
                       (session.sweeps.size() < 2 || Clock::now() - session.sweeps.back() < 15s);
            }));
    }
}
BENCHMARK(BM_LinkUnservedPerSweep)->Iterations(1)->Unit(benchmark::kSecond);

std::string macOf(int lan, int offset) {
    char mac[18];
    std::snprintf(mac, sizeof mac, "02:00:00:%02x:%02x:%02x", lan, offset >> 8, offset & 0xff);
    return mac;
}

// The home network of the arrival run: on LAN 0, a /24, the gateway at .1 and 35 hosts spread
// over the rest, one of them dropping echo; on LAN 1, a /22, a host in its first, a middle and
// its last block; and six hosts, three on each, that come later, each at a place of its own.
std::vector<BridgedNetwork::Host> arrivalPlan() {
    std::vector<BridgedNetwork::Host> plan{
        {"gateway", 0, BridgedNetwork::addressIn(0, 1), macOf(0, 1), true}};
    for (int i = 0; i < 35; ++i) {
        const int offset = 2 + 7 * i;
        plan.push_back({"host" + std::to_string(offset), 0, BridgedNetwork::addressIn(0, offset),
                        macOf(0, offset), i != 17});
    }
    for (const int offset : {20, 2 * 256 + 77, 3 * 256 + 253}) {
        plan.push_back({"far" + std::to_string(offset), 1, BridgedNetwork::addressIn(1, offset),
                        macOf(1, offset), true});
    }
    const std::pair<int, int> comers[] = {{0, 5},   {0, 130},       {0, 251},
                                          {1, 200}, {1, 256 + 150}, {1, 1022}};
    for (const auto& [lan, offset] : comers) {
        plan.push_back({"new" + std::to_string(lan) + "-" + std::to_string(offset), lan,
                        BridgedNetwork::addressIn(lan, offset), macOf(lan, offset), true, true});
    }
    return plan;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n == 0 ? 0 : (values[(n - 1) / 2] + values[n / 2]) / 2;
}

void countSpacing(benchmark::State& state, const Session& session) {
    std::vector<double> spacing;
    for (std::size_t i = 1; i < session.sweeps.size(); ++i) {
        spacing.push_back(seconds(session.sweeps[i] - session.sweeps[i - 1]));
    }
    if (!spacing.empty()) {
        state.counters["sweep_spacing_s_min"] = *std::min_element(spacing.begin(), spacing.end());
        state.counters["sweep_spacing_s_max"] = *std::max_element(spacing.begin(), spacing.end());
    }
}

// Of LAN 0's hosts that are there from the start: how many the first sweep reported, and how
// long after "getUnits", which comes right before that sweep, the last of them was reported;
// no such figure when one never was.
void countFirstSweep(benchmark::State& state, const BridgedNetwork& network,
                     const Session& session) {
    const auto units = session.first("mcmd=getUnits");
    const auto secondSweep =
        session.sweeps.size() > 1 ? session.sweeps[1] : Clock::time_point::max();
    Clock::time_point last{};
    int inFirstSweep = 0, onLan = 0;
    for (const BridgedNetwork::Host& host : network.hosts()) {
        if (host.lan != 0 || host.joinsLater) {
            continue;
        }
        ++onLan;
        const auto reported = session.first("mcmd=" + std::string(host.answersEcho ? "ON" : "OFF") +
                                            " addr=" + host.mac);
        const auto when = reported.value_or(Clock::time_point::max());
        last = std::max(last, when);
        inFirstSweep += when < secondSweep;
    }
    if (units && last != Clock::time_point::max()) {
        state.counters["first_sweep_s_24_reported"] = seconds(last - *units);
    }
    state.counters["first_sweep_reported_of_24"] = inFirstSweep;
    state.counters["hosts_of_24"] = onLan;
}

// The first sweep on the /24 of the arrival run alone, as most homes have it.
void BM_FirstSweepOfA24(benchmark::State& state) {
    std::vector<BridgedNetwork::Host> plan;
    for (const BridgedNetwork::Host& host : arrivalPlan()) {
        if (host.lan == 0 && !host.joinsLater) {
            plan.push_back(host);
        }
    }
    const auto lan = enterNetwork(state, plan);
    if (!lan) {
        return;
    }
    for (auto _ : state) {
        countFirstSweep(state, lan->network, runDriver([](const Session& run) {
                            return Clock::now() - run.started < 20s;
                        }));
    }
}
BENCHMARK(BM_FirstSweepOfA24)->Iterations(1)->Unit(benchmark::kSecond);

// Each host that comes does so at a seeded random moment between 15 s and 165 s into the run,
// when the first sweep is long over; the run ends once each is ON, or 100 s after the last came.
void BM_Arrival(benchmark::State& state) {
    const auto lan = enterNetwork(state, arrivalPlan(), {24, 22});
    if (!lan) {
        return;
    }
    const BridgedNetwork& network = lan->network;
    std::mt19937 random(20261125);
    std::uniform_real_distribution<double> moment(15, 165);
    std::map<std::string, Clock::duration> comeAfter;  // by hardware address
    std::map<std::string, std::string> roleOf;
    for (const BridgedNetwork::Host& host : network.hosts()) {
        if (host.joinsLater) {
            comeAfter[host.mac] = std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double>(moment(random)));
            roleOf[host.mac] = host.role;
        }
    }
    for (auto _ : state) {
        std::map<std::string, Clock::time_point> came;
        std::string failed;
        std::set<std::string> turnedOn;  // hardware addresses
        std::size_t read = 0;
        const Session session = runDriver([&](const Session& run) {
            const auto now = Clock::now();
            for (const auto& [mac, after] : comeAfter) {
                if (!came.contains(mac) && now - run.started >= after) {
                    const std::string why = network.join(roleOf[mac]);
                    failed += why;
                    came[mac] = Clock::now();
                }
            }
            // Only what came since the last turn is looked at.
            for (; read < run.messages.size(); ++read) {
                const std::string& message = run.messages[read].second;
                if (message.starts_with("mcmd=ON addr=")) {
                    turnedOn.insert(message.substr(13, 17));
                }
            }
            if (came.size() < comeAfter.size()) {
                return true;
            }
            Clock::time_point lastCame{};
            bool allOn = true;
            for (const auto& [mac, when] : came) {
                lastCame = std::max(lastCame, when);
                allOn = allOn && turnedOn.contains(mac);
            }
            return !allOn && now - lastCame < 100s;
        });
        if (!failed.empty()) {
            state.SkipWithError(("a host could not come: " + failed).c_str());
            return;
        }
        std::vector<double> arrivals;
        for (const auto& [mac, when] : came) {
            const auto on = session.first("mcmd=ON addr=" + mac);
            // One never reported counts as the run's wait for it.
            arrivals.push_back(on ? seconds(*on - when) : 100);
            state.counters["arrival_s_" + roleOf[mac]] = arrivals.back();
        }
        state.counters["arrival_s_worst"] = *std::max_element(arrivals.begin(), arrivals.end());
        state.counters["arrival_s_median"] = median(arrivals);

        countSpacing(state, session);
        countFirstSweep(state, network, session);
        countUnserved(state, session);
    }
}
BENCHMARK(BM_Arrival)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
