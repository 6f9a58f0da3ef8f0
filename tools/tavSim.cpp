// The agent on simulated seams: the entry point of tav_sim, and the seams' definitions.

#include "bmcView.h"
#include "hostDescription.h"
#include "hostFiles.h"
#include "recorder.h"
#include "recordingDevice.h"
#include "replay.h"
#include "simClock.h"
#include "simDevice.h"
#include "simOptions.h"
#include "trace.h"
#include "versionsText.h"
#include "workingProcess.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>

#include <sys/wait.h>
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
    std::unique_ptr<sim::Replay> replay; // in place of clock and BMC
    AgentClock& agentsClock;
    sim::Trace trace;
    sim::Bmc bmc;
    sim::SimDevice device;
    std::optional<sim::Recorder> recorder;
    std::optional<sim::RecordingDevice> recordingDevice;
    IpmiDevice* agentsDevice;
};

/// `path` must be there already, if it is used at all.
void refuseToOverwrite(const std::string& path, const sim::SimOptions& options, const char* use) {
    std::error_code none; // of that name: they are not the same, then
    for (const std::string& output : {options.recording.record, options.recording.pcap}) {
        if (std::filesystem::equivalent(output, path, none) &&
            std::filesystem::is_regular_file(path, none)) {
            throw sim::UsageError("'" + output + "' is " + use);
        }
    }
}

/// Null when there is none. A record must not be overwritten by that of its own replay.
std::unique_ptr<sim::Replay> openReplay(const sim::SimOptions& options) {
    if (options.replay.empty()) {
        return nullptr;
    }
    refuseToOverwrite(options.replay, options, "being replayed");
    return std::make_unique<sim::Replay>(options.replay);
}

AgentClock& clockOf(World& world) {
    if (world.replay) {
        return world.replay->clock();
    }
    return world.clock;
}

World::World(sim::SimOptions options_) :
    options(std::move(options_)), files(filesFor(options)), clock(options.speed),
    replay(openReplay(options)), agentsClock(clockOf(*this)),
    trace(options.trace, agentsClock.monotonic()), bmc([this] { return clock.monotonic(); }),
    device(bmc, [this](std::chrono::microseconds span) { return clock.sleep(span); }),
    agentsDevice(&device) {
    sim::setUp(bmc, options);
    device.misbehave(options.misbehaviour);
    device.setNodePresent(!options.noDevice);
    if (!options.quiet) {
        device.observe([this](const sim::Exchange& exchange) { trace.line(exchange); });
    }
}

World* world = nullptr;

void printLine(const sim::Exchange& exchange) {
    if (!world->options.quiet) {
        world->trace.line(exchange);
    }
}

void arrangeReplay() {
    world->replay->setUpHost(world->options.smbiosForm, world->files);
    world->agentsDevice = &world->replay->device();
}

/// From here on the recorder prints, in place of the simulated device.
void arrangeRecording() {
    world->device.observe({});
    const auto now = [] { return world->agentsClock.monotonic(); };
    const auto options = std::span(world->options.agentArguments).subspan(1);
    sim::Recorder& recorder = world->recorder.emplace(
        world->options.recording, sim::describeHost("tav_sim", options), now, printLine);
    world->agentsDevice = &world->recordingDevice.emplace(
        *world->agentsDevice, now, [&recorder] { recorder.noteEndRequest(); },
        [&recorder](const sim::Exchange& exchange) {
            recorder.take(exchange);
            if (world->replay) {
                world->replay->endWhereCut();
            }
        });
}

/// Who starts a daemon to be replayed ends as that does: its life is so short that it may be over
/// before its answer is noticed.
void endAsTheDaemonDoes() {
    int status = 0;
    const bool ended = ::waitpid(sim::workingProcess(), &status, 0) != -1;
    world->replay->cleanUp();
    if (ended && WIFEXITED(status)) {
        ::_exit(WEXITSTATUS(status));
    }
}

/// As tav_status would, through the device; the trace is that of the agent, without it.
int showStatus() {
    world->device.observe({});
    world->agentsDevice = &world->device;
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
    if (sim::workingProcess() != ::getpid()) {
        if (world->replay) {
            endAsTheDaemonDoes();
        }
        return;
    }
    if (world->recorder) {
        world->recorder->close();
    }
    if (world->replay) {
        world->trace.print(world->replay->closingLine());
    } else if (world->options.status) {
        world->trace.print(world->options.quiet ? "" : "\n");
        showStatus();
    } else {
        showBmc();
    }
}

/// The exit status when there is no agent to run.
std::optional<int> prepare(int argc, char** argv) {
    sim::SimOptions options = sim::parseSimOptions(argc, argv);
    if (options.help) {
        (void)std::fputs(sim::simUsage().c_str(), stdout);
        return EXIT_SUCCESS;
    }
    if (options.version) {
        (void)std::puts("tav_sim " TAV_VERSION);
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
    refuseToOverwrite(world->options.trace, world->options, "where the trace goes");
    if (world->replay) {
        arrangeReplay();
    }
    if (world->replay || world->options.recording.any() || world->options.recording.mask) {
        arrangeRecording();
    }
    sim::watchWorkingProcess(showEnd);
    // Whoever reads the trace may go before the agent does.
    return std::signal(SIGPIPE, SIG_IGN) == SIG_ERR ? std::optional(EXIT_SUCCESS) : std::nullopt;
}

} // namespace

IpmiDevice& ipmiDevice() noexcept {
    return *world->agentsDevice;
}
AgentClock& agentClock() noexcept {
    return world->agentsClock;
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
