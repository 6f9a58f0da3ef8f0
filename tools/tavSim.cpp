// The agent on simulated seams: the entry point of tav_sim, and the seams' definitions.

#include "bmcView.h"
#include "hostFiles.h"
#include "simClock.h"
#include "simDevice.h"
#include "simOptions.h"
#include "trace.h"
#include "versionsText.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>
#include <optional>

#include <sys/mman.h>
#include <unistd.h>

extern "C" {
// The names that the linker's --wrap=main gives to this program's entry and to the agent's.
int __wrap_main(int argc, char** argv);
int __real_main(int argc, char** argv);
}

namespace {

constexpr int usageStatus = 2;

void moveUnder(const std::string& root, sim::HostFiles& files) {
    // Absolute, since a daemon changes its working directory.
    const std::string base = std::filesystem::absolute(root).string();
    for (std::string* const path : {&files.pidFile, &files.productString, &files.vibVersions}) {
        *path = base + *path;
        std::filesystem::create_directories(std::filesystem::path(*path).parent_path());
    }
}

sim::HostFiles filesFor(const sim::SimOptions& options) {
    sim::HostFiles files;
    if (!options.root.empty()) {
        moveUnder(options.root, files);
    }
    sim::showSmbios(options.machine->smbios(), options.smbiosForm, files);
    return files;
}

/// Everything around the agent. Never destroyed: the agent may end anywhere by exit(3).
struct World {
    explicit World(sim::SimOptions options_);

    sim::SimOptions options;
    sim::HostFiles files;
    sim::SimClock clock;
    sim::Trace trace;
    sim::Bmc bmc;
    sim::SimDevice device;
};

World::World(sim::SimOptions options_) :
    options(std::move(options_)), files(filesFor(options)), clock(options.speed),
    trace(options.trace, clock.monotonic()), bmc([this] { return clock.monotonic(); }),
    device(bmc, [this](std::chrono::microseconds span) { return clock.sleep(span); }) {
    sim::setUp(bmc, options);
    device.misbehave(options.misbehaviour);
    device.setNodePresent(!options.noDevice);
    if (!options.quiet) {
        device.observe([this](const sim::Exchange& exchange) { trace.line(exchange); });
    }
}

World* world = nullptr;

// The process that works with the BMC now: a daemon's child takes over from its parent. Shared
// between the two, so that the parent, which ends later or earlier, knows.
std::atomic<pid_t>* worker = nullptr;

void becomeWorker() {
    *worker = ::getpid();
}

/// As tav_status would, through the device; the trace is that of the agent, without it.
int showStatus() {
    world->device.observe({});
    const tavStatus::Shown shown =
        tavStatus::showStatus(tavStatus::collectStatus(), *world->options.status);
    world->trace.print(shown.text);
    return shown.exitStatus;
}

void showBmc() {
    const std::string view = world->device.withBmc(sim::bmcView);
    world->trace.print("\n" + view + sim::usageText(world->device));
}

void showEnd() {
    if (*worker != ::getpid()) {
        return;
    }
    if (world->options.status) {
        world->trace.print(world->options.quiet ? "" : "\n");
        showStatus();
    } else {
        showBmc();
    }
}

void arrangeClosingView() {
    void* const shared =
        ::mmap(nullptr, sizeof *worker, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        throw std::bad_alloc();
    }
    worker = new (shared) std::atomic<pid_t>;
    becomeWorker();
    ::pthread_atfork(nullptr, nullptr, becomeWorker);
    if (std::atexit(showEnd) != 0) {
        throw std::bad_alloc();
    }
}

/// The exit status when there is no agent to run.
std::optional<int> prepare(int argc, char** argv) {
    sim::SimOptions options = sim::parseSimOptions(argc, argv);
    if (options.help) {
        (void)std::fputs(sim::simUsage().c_str(), stdout);
        return EXIT_SUCCESS;
    }
    world = new World(std::move(options));
    if (world->options.versions) {
        const std::string lines = versionsText();
        world->trace.print(lines);
        return EXIT_SUCCESS;
    }
    if (world->options.status && !world->options.hasAgentOptions()) {
        return showStatus();
    }
    arrangeClosingView();
    // Whoever reads the trace may go before the agent does.
    return std::signal(SIGPIPE, SIG_IGN) == SIG_ERR ? std::optional(EXIT_SUCCESS) : std::nullopt;
}

} // namespace

IpmiDevice& ipmiDevice() noexcept {
    return world->device;
}
AgentClock& agentClock() noexcept {
    return world->clock;
}
HostPaths hostPaths() noexcept {
    return world->files.paths();
}

int __wrap_main(int argc, char** argv) {
    try {
        if (const std::optional<int> status = prepare(argc, argv)) {
            return *status;
        }
    } catch (const sim::UsageError& error) {
        (void)std::fprintf(stderr, "tav_sim: %s\n\n%s", error.what(), sim::simUsage().c_str());
        return usageStatus;
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "tav_sim: %s\n", error.what());
        return usageStatus;
    }
    auto& arguments = world->options.agentArguments;
    return __real_main(static_cast<int>(arguments.size()) - 1, arguments.data());
}
