// The pump's costs: how fast a child's end reaches Event_Completed, what an idle connected
// driver burns, and whether 1,000 child runs leave anything behind.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "LoopbackServer.h"
#include "ProcessStats.h"
#include "host/ConsoleApplication.h"
#include "host/Ref.h"
#include "host/Shell.h"

namespace {

std::string selfPath;

std::int64_t monotonicNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// The child prints its pid and exits a little later. A watcher thread holds its own pidfd of
// the child and notes the moment the kernel reports the exit; the handler notes the moment the
// pump delivered it. The difference is the pump's own delay.
class ExitProbe : public host::Shell {
public:
    std::int64_t deliveredAt = -1;

protected:
    void Event_Completed() override { deliveredAt = monotonicNanoseconds(); }
};

void BM_ChildExitToCompleted(benchmark::State& state) {
    auto child = host::New<ExitProbe>();
    child->Mode = 1;
    std::vector<double> delays;
    for (auto _ : state) {
        child->deliveredAt = -1;
        child->Execute(host::String(selfPath), "--print-pid-then-exit");
        std::string output;
        while (output.find('\n') == std::string::npos) {
            host::ConsoleApplication::DoEvents(1);
            output += child->ReadAll().bytes();
        }
        const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, std::stoi(output), 0));
        std::int64_t exitedAt = -1;
        std::thread watcher([&] {
            pollfd entry{pidfd, POLLIN, 0};
            poll(&entry, 1, -1);
            exitedAt = monotonicNanoseconds();
        });
        while (child->deliveredAt < 0) {
            host::ConsoleApplication::DoEvents(5);
        }
        watcher.join();
        close(pidfd);
        delays.push_back(static_cast<double>(child->deliveredAt - exitedAt) / 1000.0);
    }
    std::sort(delays.begin(), delays.end());
    // Below zero the pump saw the exit before the watcher thread did.
    state.counters["p50_us"] = delays[delays.size() / 2];
    state.counters["p99_us"] = delays[delays.size() * 99 / 100];
    state.counters["max_us"] = delays.back();
}
BENCHMARK(BM_ChildExitToCompleted)->Iterations(200)->Unit(benchmark::kMillisecond);

class Counted : public host::Shell {
public:
    static inline int completed = 0;

protected:
    void Event_Completed() override { ++completed; }
};

void runThousandChildren() {
    Counted::completed = 0;
    for (int run = 0; run < 1000; ++run) {
        auto child = host::New<Counted>();
        child->Mode = 1;
        child->Execute("/bin/true", "");
    }
    while (Counted::completed < 1000) {
        host::ConsoleApplication::DoEvents(100);
    }
}

// A first round warms the allocator; the second shows whether anything grows per run.
void BM_ThousandChildRuns(benchmark::State& state) {
    runThousandChildren();
    for (auto _ : state) {
        const int descriptorsBefore = testsupport::openDescriptors();
        const long residentBefore = testsupport::residentKilobytes(getpid());
        runThousandChildren();
        state.counters["fd_growth"] = testsupport::openDescriptors() - descriptorsBefore;
        state.counters["rss_growth_kb"] =
            static_cast<double>(testsupport::residentKilobytes(getpid()) - residentBefore);
        int zombies = 0;
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
            ++zombies;
        }
        state.counters["unreaped_children"] = zombies;
    }
}
BENCHMARK(BM_ThousandChildRuns)->Iterations(1)->Unit(benchmark::kMillisecond);

// On a network of fake tools with no host, so that the figure is the driver's alone.
void BM_IdleConnectedDriverCpu(benchmark::State& state) {
    testsupport::FakeNetwork network;
    for (auto _ : state) {
        testsupport::LoopbackServer server;
        testsupport::DriverProcess driver(
            {"", "127.0.0.1", std::to_string(server.port()), "bench"});
        server.accept();

        std::this_thread::sleep_for(std::chrono::seconds(3));  // past start-up and first sweep
        const double before = testsupport::cpuSeconds(driver.pid());
        const auto from = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::seconds(10));
        const double used = testsupport::cpuSeconds(driver.pid()) - before;
        // Over the window as it was, which a busy machine stretches past the 10 s asked for.
        const double window =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
        state.counters["cpu_percent_of_core"] = 100.0 * used / window;
        state.counters["window_seconds"] = window;
    }
}
BENCHMARK(BM_IdleConnectedDriverCpu)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--print-pid-then-exit") == 0) {
        std::printf("%d\n", static_cast<int>(getpid()));
        std::fflush(stdout);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return 0;
    }
    selfPath = std::filesystem::canonical("/proc/self/exe").string();
    signal(SIGPIPE, SIG_IGN);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
