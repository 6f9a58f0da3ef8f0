// Inventory and change detection with many interfaces, in a network namespace of its own.

#include "tavIp.h"

#include <cstdlib>

#include <benchmark/benchmark.h>

#include <sched.h>

namespace {

/// 500 tap devices with an IPv4 address each; false if the namespace cannot be made.
bool makeInterfaces() {
    if (::unshare(CLONE_NEWNET) != 0) {
        return false;
    }
    return std::system(R"(for i in $(seq 500); do
        echo tuntap add b$i mode tap
        echo addr add 10.$((i / 250)).$((i % 250)).1/24 dev b$i
    done | ip -batch -)") == 0;
}

void inventoryAndComparison(benchmark::State& state) {
    static const bool made = makeInterfaces();
    if (!made) {
        state.SkipWithError("no network namespace");
        return;
    }
    const tavIp::TavIp before;
    while (state.KeepRunning()) {
        const tavIp::TavIp fresh;
        benchmark::DoNotOptimize(before == fresh);
    }
    state.counters["interfaces"] = before.getIfNumber();
}
BENCHMARK(inventoryAndComparison)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
