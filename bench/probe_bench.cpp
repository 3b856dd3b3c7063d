// What one probe costs the driver's own thread, against the least any program pays to run the
// same tool: posix_spawn, a read of its output to the end and waitpid. Both run the fake ping,
// in alternating batches of the same run, so that a noisy machine moves both alike.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "host/EventPump.h"
#include "host/Ref.h"
#include "host/Shell.h"
#include "scan/SystemTools.h"

extern char** environ;

namespace {

constexpr int kBatch = 20;
const char* const kAddress = "10.9.0.1";

double threadCpuMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// As cDevice's: the probe's end is served by the pump and its output read as the driver does.
class Probe : public host::Shell {
public:
    int completed = 0;

protected:
    void Event_Completed() override {
        benchmark::DoNotOptimize(SystemTools::probeOutcome(ErrorCode(), Result()));
        ++completed;
    }
};

void driverProbes(Probe& probe) {
    for (int i = 0; i < kBatch; ++i) {
        const int before = probe.completed;
        SystemTools::startProbe(probe, host::String(kAddress));
        host::EventPump::instance().runUntil(10000, [&] { return probe.completed > before; });
    }
}

void bareSpawns(const std::string& tool) {
    std::array<std::string, 7> words{"ping", "-c", "2", "-W", "2", "--", kAddress};
    std::array<char*, 8> argv{};
    std::transform(words.begin(), words.end(), argv.begin(),
                   [](std::string& word) { return word.data(); });
    for (int i = 0; i < kBatch; ++i) {
        std::array<int, 2> ends{};
        pipe2(ends.data(), O_CLOEXEC);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
        posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
        pid_t pid = -1;
        posix_spawn(&pid, tool.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        std::string output;
        std::array<char, 4096> buffer;
        for (ssize_t got; (got = read(ends[0], buffer.data(), buffer.size())) > 0;) {
            output.append(buffer.data(), static_cast<std::size_t>(got));
        }
        close(ends[0]);
        int status = 0;
        waitpid(pid, &status, 0);
        benchmark::DoNotOptimize(output);
    }
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Each iteration one batch of each; the figures are the medians of the batches, in CPU
// microseconds of this thread per child.
void BM_ProbeAgainstBareSpawn(benchmark::State& state) {
    testsupport::FakeNetwork network;
    network.answer("default", "up 0.050");
    const std::string tool = std::string(FAKE_TOOLS_DIR) + "/ping";
    auto probe = host::New<Probe>();
    probe->Mode = 1;
    driverProbes(*probe);  // warms the allocator and the page cache for both
    bareSpawns(tool);
    std::vector<double> driver;
    std::vector<double> bare;
    for (auto _ : state) {
        double start = threadCpuMicroseconds();
        driverProbes(*probe);
        driver.push_back((threadCpuMicroseconds() - start) / kBatch);
        start = threadCpuMicroseconds();
        bareSpawns(tool);
        bare.push_back((threadCpuMicroseconds() - start) / kBatch);
    }
    state.counters["driver_cpu_us_per_probe"] = median(driver);
    state.counters["bare_spawn_cpu_us"] = median(bare);
    state.counters["driver_over_bare"] = median(driver) / median(bare);
}
BENCHMARK(BM_ProbeAgainstBareSpawn)->Iterations(30)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
