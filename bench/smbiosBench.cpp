// Reading a table of 64 KiB as the kernel publishes it, and looking for the machine's line.

#include "benchPaths.h"
#include "tavSmbios.h"

#include <string>

#include <benchmark/benchmark.h>

#include <sys/mman.h>
#include <unistd.h>

namespace {

std::string memoryFile(const std::string& content) {
    const int fd = ::memfd_create("smbios", 0);
    const bool whole =
        ::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    return whole ? "/proc/self/fd/" + std::to_string(fd) : "/nonexistent";
}

void smbiosTable(benchmark::State& state) {
    const std::string memoryDevice("\x11\x04\x00\x00locator\0bank\0\0", 18);
    std::string table;
    while (table.size() < 65000) {
        table += memoryDevice;
    }
    std::string entryPoint = "_SM3_\x57\x18";
    entryPoint.resize(24);
    benchPaths().physicalMemory = "/nonexistent";
    const std::string entryPointFile = memoryFile(entryPoint);
    const std::string tableFile = memoryFile(table);
    benchPaths().smbiosEntryPoint = entryPointFile.c_str();
    benchPaths().smbiosTable = tableFile.c_str();
    while (state.KeepRunning()) {
        const tavSmbios::TavSmbios tables;
        benchmark::DoNotOptimize(tavSmbios::isKestrelbox(tables));
    }
    const std::uint16_t count = tavSmbios::TavSmbios().getEntryPoint().structureCount;
    state.counters["structures"] = count;
}
BENCHMARK(smbiosTable)->Unit(benchmark::kMicrosecond);

} // namespace
