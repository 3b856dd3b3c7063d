// The record store's costs on a unit list of 10,000 units: the byte form both ways, and the
// roster's walk by running number from a freshly loaded list.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Counters.h"
#include "host/Ref.h"
#include "host/String.h"
#include "store/CXML.h"
#include "store/UnitListRecord.h"

namespace {

constexpr int kUnits = 10000;

host::Ref<CXML> makeUnitList() {
    std::vector<UnitListRecord::Unit> units;
    for (int i = 0; i < kUnits; ++i) {
        units.push_back({100000 + i,
                         "192.168." + std::to_string(i / 250) + "." + std::to_string(i % 250),
                         "Living room lamp " + std::to_string(i)});
    }
    return UnitListRecord::of(units);
}

const host::String& unitListBytes() {
    static const host::String bytes = makeUnitList()->SaveToString();
    return bytes;
}

void BM_SaveToString(benchmark::State& state) {
    host::Ref<CXML> list = makeUnitList();
    std::size_t size = 0;
    for (auto _ : state) {
        host::String bytes = list->SaveToString();
        size = bytes.size();
        benchmark::DoNotOptimize(bytes);
    }
    state.counters["mb_per_s"] = benchcounters::megabytesPerSecond(state, size);
}
BENCHMARK(BM_SaveToString)->Unit(benchmark::kMillisecond);

void BM_LoadFromString(benchmark::State& state) {
    const host::String& bytes = unitListBytes();
    for (auto _ : state) {
        auto list = host::New<CXML>();
        list->loadFromString(bytes);
        benchmark::DoNotOptimize(list);
        // Letting the tree go is the holder's cost, not the reader's.
        state.PauseTiming();
        list = nullptr;
        state.ResumeTiming();
    }
    state.counters["mb_per_s"] = benchcounters::megabytesPerSecond(state, bytes.size());
}
BENCHMARK(BM_LoadFromString)->Unit(benchmark::kMillisecond);

void BM_RosterWalk(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto list = host::New<CXML>();
        list->loadFromString(unitListBytes());
        state.ResumeTiming();
        std::int64_t count = list->GetContainerCount("unit");
        double sum = 0;
        for (std::int64_t i = 1; i <= count; ++i) {
            host::Ref<CXML> unit = list->GetContainer("unit", i);
            benchmark::DoNotOptimize(unit->GetStringValue("Address"));
            benchmark::DoNotOptimize(unit->GetStringValue("Name"));
            sum += unit->GetDoubleValue("uniqueid");
        }
        benchmark::DoNotOptimize(sum);
        state.PauseTiming();
        list = nullptr;
        state.ResumeTiming();
    }
    state.counters["walk_ms"] = benchcounters::millisecondsEach(state);
}
BENCHMARK(BM_RosterWalk)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
