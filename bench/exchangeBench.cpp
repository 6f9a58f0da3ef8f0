// The cost of one exchange: device calls, heap blocks, time.

#include "benchPaths.h"
#include "hostPaths.h"
#include "instantDevice.h"
#include "recorder.h"
#include "recordingDevice.h"
#include "stillClock.h"
#include "tavIpmi.h"

#include <atomic>
#include <cstdlib>

#include <benchmark/benchmark.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

std::atomic<unsigned long> heapBlocks{0};

sim::InstantDevice device;
IpmiDevice* agentsDevice = &device;

void exchange(benchmark::State& state) {
    const unsigned long calls = device.calls;
    const unsigned long blocks = heapBlocks;
    while (state.KeepRunning()) {
        const tavIpmi::TavIpmi ipmi(0, 0, tavIpmi::TavIpmi::ipmiSystemInterface);
        tavIpmi::TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_app,
                                         tavIpmi::ipmi_cmd_get_device_id);
        benchmark::DoNotOptimize(tavIpmi::exchange(ipmi, msg));
    }
    const auto per = [&state](unsigned long number) {
        return benchmark::Counter(static_cast<double>(number) /
                                  static_cast<double>(state.iterations()));
    };
    state.counters["device_calls"] = per(device.calls - calls);
    state.counters["heap_blocks"] = per(heapBlocks - blocks);
}
BENCHMARK(exchange);

/// The same with what tav_trace -o puts in between; the difference is what that costs.
void recordedExchange(benchmark::State& state) {
    const std::string file = "/tmp/tav_bench." + std::to_string(::getpid());
    sim::Recorder recorder(
        {file, "", false}, {}, [] { return agentClock().monotonic(); },
        [](const sim::Exchange&) {});
    sim::RecordingDevice recording(
        device, [] { return agentClock().monotonic(); }, [&] { recorder.noteEndRequest(); },
        [&](const sim::Exchange& told) { recorder.take(told); });
    agentsDevice = &recording;
    exchange(state);
    agentsDevice = &device;
    struct stat record {};
    ::stat(file.c_str(), &record);
    state.counters["bytes"] =
        static_cast<double>(record.st_size) / static_cast<double>(state.iterations());
    ::unlink(file.c_str());
}
BENCHMARK(recordedExchange);

} // namespace

IpmiDevice& ipmiDevice() noexcept {
    return *agentsDevice;
}
AgentClock& agentClock() noexcept {
    static sim::StillClock clock;
    return clock;
}
HostPaths& benchPaths() noexcept {
    static HostPaths paths;
    return paths;
}
HostPaths hostPaths() noexcept {
    return benchPaths();
}

// Counts every block of the heap, whoever asks for it.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* malloc(std::size_t size) noexcept {
    ++heapBlocks;
    return __libc_malloc(size);
}
