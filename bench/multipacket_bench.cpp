// Throughput of the multi-packet codec: parsing a received packet and reading every key back,
// and writing a packet from a filled message, on packets of 1 KB to 64 KB.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "Counters.h"
#include "host/Ref.h"
#include "wire/cAmbrelisCommand.h"

namespace {

// Distinct four-byte keys that stay distinct without case: digits and lower-case letters only.
host::String keyNumber(std::size_t n) {
    static constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::string key(4, '0');
    for (std::size_t i = 4; i-- > 0; n /= 36) {
        key[i] = kDigits[n % 36];
    }
    return host::String(key);
}

// A message of about packetSize bytes made of values of valueSize bytes, and its keys.
host::Ref<cAmbrelisCommand> filledMessage(std::size_t packetSize, std::size_t valueSize,
                                          std::vector<host::String>& keys) {
    auto cmd = host::New<cAmbrelisCommand>();
    cmd->Constructor();
    const std::size_t count = std::max<std::size_t>(1, (packetSize - 4) / (6 + valueSize));
    for (std::size_t i = 0; i < count; ++i) {
        keys.push_back(keyNumber(i));
        cmd->SetMulti(keys.back(), host::String(std::string(valueSize, static_cast<char>(i))));
    }
    return cmd;
}

void BM_ReadMultiPacket(benchmark::State& state) {
    std::vector<host::String> keys;
    const host::String packet = filledMessage(static_cast<std::size_t>(state.range(0)),
                                              static_cast<std::size_t>(state.range(1)), keys)
                                    ->GetRawCommand();
    for (auto _ : state) {
        auto cmd = host::New<cAmbrelisCommand>();
        cmd->Constructor();
        benchmark::DoNotOptimize(cmd->initFromMultiPacket(packet));
        for (const host::String& key : keys) {
            benchmark::DoNotOptimize(cmd->GetMulti(key));
        }
    }
    state.counters["mb_per_s"] = benchcounters::megabytesPerSecond(state, packet.size());
    state.counters["keys"] = static_cast<double>(keys.size());
}

void BM_WriteMultiPacket(benchmark::State& state) {
    std::vector<host::String> keys;
    auto cmd = filledMessage(static_cast<std::size_t>(state.range(0)),
                             static_cast<std::size_t>(state.range(1)), keys);
    std::size_t size = 0;
    for (auto _ : state) {
        host::String packet = cmd->GetRawCommand();
        size = packet.size();
        benchmark::DoNotOptimize(packet);
    }
    state.counters["mb_per_s"] = benchcounters::megabytesPerSecond(state, size);
    state.counters["keys"] = static_cast<double>(keys.size());
}

// Packet sizes from 1 KB to 64 KB; values of 32 bytes (many short keys, the worst case), 128
// bytes, and 1 KB (a few large values, the shape of a unit list).
void packetShapes(benchmark::internal::Benchmark* bench) {
    for (std::int64_t valueSize : {32, 128, 1024}) {
        for (std::int64_t packetSize = 1024; packetSize <= 65535; packetSize *= 4) {
            bench->Args({packetSize, valueSize});
        }
        bench->Args({65535, valueSize});
    }
    bench->ArgNames({"bytes", "value"});
}

}  // namespace

BENCHMARK(BM_ReadMultiPacket)->Apply(packetShapes);
BENCHMARK(BM_WriteMultiPacket)->Apply(packetShapes);

BENCHMARK_MAIN();
