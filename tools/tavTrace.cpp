// The agent on its real seams, with a recorder in front of the device: the entry point of
// tav_trace.

#include "agentClock.h"
#include "bmcOptions.h"
#include "hostDescription.h"
#include "recorder.h"
#include "recordingDevice.h"
#include "trace.h"
#include "workingProcess.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include <unistd.h>

extern "C" {
// The names that the linker's --wrap gives to this program's entry and to the agent's.
int __wrap_main(int argc, char** argv);
int __real_main(int argc, char** argv);
}

// The same for ipmiDevice().
IpmiDevice& recordedDevice() noexcept __asm__("__wrap__Z10ipmiDevicev");
IpmiDevice& kernelsDevice() noexcept __asm__("__real__Z10ipmiDevicev");

namespace {

constexpr int usageStatus = 2;

constexpr const char* usage = R"(usage: tav_trace [OPTION...] [--] [-n|-s|-t]
Runs the agent as tav_init does, shows every exchange with the BMC, and records it.

  -o FILE        write a record to FILE, which tav_sim --replay plays again
  --pcap FILE    write the messages to FILE for Wireshark; with
                   tshark -o ipmi.dissect_bus_commands:TRUE -r FILE
                 it shows those to the management blade, too
  --mask         mask serial numbers, texts of the configuration space, MAC and IP addresses in
                 all that is written, consistently: the record still replays
  --help         show this
  --version      say which version this is

FILE is overwritten. When it cannot be written a line says so, and the agent goes on.
Exit status: 2 for a wrong command line, otherwise the agent's.
)";

struct Options {
    bool help = false;
    bool version = false;
    sim::RecordOptions recording;
    std::vector<char*> agentArguments; // argv[0], the agent's own, and the closing null pointer
};

std::vector<sim::Option> optionTable(Options& options) {
    using Text = const std::string&;
    return {
        {"-o", true, [&options](Text value) { options.recording.record = value; }},
        {"--pcap", true, [&options](Text value) { options.recording.pcap = value; }},
        {"--mask", false, [&options](Text) { options.recording.mask = true; }},
        {"--help", false, [&options](Text) { options.help = true; }},
        {"--version", false, [&options](Text) { options.version = true; }},
    };
}

/// The first that is not an option of this program's, or its value, is the agent's.
std::size_t ownArguments(const std::vector<sim::Option>& known, std::span<char*> arguments) {
    std::size_t count = 0;
    while (count < arguments.size()) {
        const auto option =
            std::ranges::find(known, std::string(arguments[count]), &sim::Option::name);
        if (option == known.end()) {
            return count;
        }
        count += option->hasValue ? 2U : 1U;
    }
    return arguments.size();
}

/// The agent takes the timer over before it finds that it does not know an option. So what can only
/// be meant for this program, but is not understood here, must not get there.
void refuseMisplaced(const std::vector<sim::Option>& known, std::span<char* const> agents) {
    for (const std::string argument : agents) {
        if (std::ranges::find(known, argument, &sim::Option::name) != known.end()) {
            throw sim::UsageError("'" + argument + "' has to stand before the agent's options");
        }
        if (argument.starts_with("--") && argument != "--") {
            throw sim::UsageError("unknown option '" + argument + "'");
        }
    }
}

Options parseOptions(std::span<char*> arguments) {
    Options options;
    const auto known = optionTable(options);
    auto rest = arguments.subspan(1);
    const std::size_t own = ownArguments(known, rest);
    sim::parseOptions(known, rest.first(own));
    rest = rest.subspan(own);
    refuseMisplaced(known, rest);
    if (!rest.empty() && std::string_view(rest.front()) == "--") {
        rest = rest.subspan(1);
    }
    options.agentArguments = {arguments[0]};
    options.agentArguments.insert(options.agentArguments.end(), rest.begin(), rest.end());
    options.agentArguments.push_back(nullptr);
    return options;
}

std::chrono::milliseconds now() {
    return agentClock().monotonic();
}

/// Everything around the agent. Never destroyed: the agent may end anywhere by exit(3).
struct Tracer {
    explicit Tracer(Options options_);

    Options options;
    sim::Trace trace;
    sim::Recorder recorder;
    sim::RecordingDevice device;
};

Tracer::Tracer(Options options_) :
    options(std::move(options_)), trace(now()),
    recorder(options.recording,
             sim::describeHost("tav_trace", std::span(options.agentArguments).subspan(1)), now,
             [this](const sim::Exchange& exchange) { trace.line(exchange); }),
    device(
        kernelsDevice(), now, [this] { recorder.noteEndRequest(); },
        [this](const sim::Exchange& exchange) { recorder.take(exchange); }) {}

Tracer* tracer = nullptr;

void closeRecord() {
    if (sim::workingProcess() == ::getpid()) {
        tracer->recorder.close();
    }
}

/// False when there is nothing to run.
bool prepare(int argc, char** argv) {
    Options options = parseOptions({argv, static_cast<std::size_t>(argc)});
    if (options.help) {
        (void)std::fputs(usage, stdout);
        return false;
    }
    if (options.version) {
        (void)std::puts("tav_trace " TAV_VERSION);
        return false;
    }
    // Whoever reads the output may go before the agent does, and a file may reach its limit.
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    tracer = new Tracer(std::move(options));
    sim::watchWorkingProcess(closeRecord);
    return true;
}

} // namespace

IpmiDevice& recordedDevice() noexcept {
    return tracer->device;
}

int __wrap_main(int argc, char** argv) {
    try {
        if (!prepare(argc, argv)) {
            return EXIT_SUCCESS;
        }
    } catch (const sim::UsageError& error) {
        (void)std::fprintf(stderr, "tav_trace: %s\n\n%s", error.what(), usage);
        return usageStatus;
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "tav_trace: %s\n", error.what());
        return usageStatus;
    }
    auto& arguments = tracer->options.agentArguments;
    return __real_main(static_cast<int>(arguments.size()) - 1, arguments.data());
}
