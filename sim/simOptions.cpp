#include "simOptions.h"

#include "confVariables.h"
#include "text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace sim {

namespace {

constexpr std::uint16_t softWatchdogEnable = 66;
constexpr std::uint16_t softWatchdogTime = 67;

void addValue(SimOptions& options, std::string_view name, const std::string& value) {
    const ConfVariable& variable = namedConfVariable(name);
    parseValue(variable.kind, value); // says now what is wrong with it
    options.values.emplace_back(variable.id, value);
}

void takeSet(SimOptions& options, const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw std::invalid_argument("'" + text + "' is not NAME=VALUE");
    }
    addValue(options, text.substr(0, equals), text.substr(equals + 1));
}

void takeWatchdog(SimOptions& options, const std::string& text) {
    options.values.emplace_back(softWatchdogEnable, "enabled");
    addValue(options, std::to_string(softWatchdogTime), text);
}

void takeSpeed(SimOptions& options, const std::string& text) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, options.speed);
    if (error != std::errc{} || stop != end || !(options.speed > 0 && options.speed <= 1e6)) {
        throw std::invalid_argument("'" + text + "' is not a factor");
    }
}

void takeConnected(SimOptions& options, const std::string& text) {
    if (text != "yes" && text != "no") {
        throw std::invalid_argument("'" + text + "' is neither yes nor no");
    }
    options.connected = text == "yes";
}

struct Option {
    const char* name;
    bool hasValue;
    void (*take)(SimOptions& options, const std::string& value);
};

using Text = const std::string&;

constexpr std::array<Option, 15> known = {{
    {"--help", false, [](SimOptions& options, Text) { options.help = true; }},
    {"--quiet", false, [](SimOptions& options, Text) { options.quiet = true; }},
    {"--no-device", false, [](SimOptions& options, Text) { options.noDevice = true; }},
    {"--versions", false, [](SimOptions& options, Text) { options.versions = true; }},
    {"--root", true, [](SimOptions& options, Text value) { options.root = value; }},
    {"--trace", true, [](SimOptions& options, Text value) { options.trace = value; }},
    {"--speed", true, takeSpeed},
    {"--machine", true,
     [](SimOptions& options, Text value) { options.machine = &namedMachine(value); }},
    {"--smbios", true,
     [](SimOptions& options, Text value) { options.smbiosForm = namedSmbiosForm(value); }},
    {"--connected", true, takeConnected},
    {"--set", true, takeSet},
    {"--watchdog", true, takeWatchdog},
    {"--fault", true,
     [](SimOptions& options, Text value) {
         options.misbehaviour.faults.push_back(parseFault(value));
     }},
    {"--fail-call", true,
     [](SimOptions& options, Text value) {
         options.misbehaviour.failingCall = parseFailingCall(value);
     }},
    {"--raise-at-call", true,
     [](SimOptions& options, Text value) {
         options.misbehaviour.raisedSignals.push_back(parseRaisedSignal(value));
     }},
}};

const Option& findOption(const std::string& name) {
    const auto* const found = std::ranges::find(known, name, &Option::name);
    if (found == known.end()) {
        throw UsageError("unknown option '" + name + "' (the agent's options come after --)");
    }
    return *found;
}

void takeOption(SimOptions& options, const Option& option, const char* value) {
    if (option.hasValue && value == nullptr) {
        throw UsageError(std::string(option.name) + " needs a value");
    }
    try {
        option.take(options, option.hasValue ? value : "");
    } catch (const std::invalid_argument& error) {
        throw UsageError(std::string(option.name) + ": " + error.what());
    }
}

} // namespace

SimOptions parseSimOptions(int argc, char** argv) {
    const std::span<char*> arguments(argv, static_cast<std::size_t>(argc));
    SimOptions options;
    std::size_t next = 1;
    while (next < arguments.size() && std::string_view(arguments[next]) != "--") {
        const Option& option = findOption(arguments[next]);
        takeOption(options, option, next + 1 < arguments.size() ? arguments[next + 1] : nullptr);
        next += option.hasValue ? 2 : 1;
    }
    options.agentArguments = {arguments[0]};
    for (++next; next < arguments.size(); ++next) {
        options.agentArguments.push_back(arguments[next]);
    }
    options.agentArguments.push_back(nullptr);
    return options;
}

const char* simUsage() noexcept {
    return R"(usage: tav_sim [OPTION...] [-- AGENT-OPTION...]
Runs the agent on a simulated BMC and shows every exchange between them.

  --root DIR           keep the host's files that the agent uses under DIR
  --speed N            let time pass N times faster
  --trace FILE         append the output to FILE instead of standard output
  --quiet              show only how the BMC is left at the end
  --versions           do not run the agent, but show what its reader of the BMC's EEPROM
                       versions finds

The machine:
  --machine NAME       one of
      plain              server outside a chassis (the default)
      blade              blade in slot 3, LAN ports 1 to 4 with the MAC addresses
                         02:00:00:00:00:01 to 02:00:00:00:00:04
      old-blade          the same with a management blade that lacks IPv6 and the newer
                         commands
      kestrelbox         blade of the KESTRELBOX line
      nic                server whose adapter keeps port information: two NIC ports with the
                         MAC addresses 02:00:00:00:00:11 and 02:00:00:00:00:12
      nic-blade          blade with such an adapter
  --smbios FORM        how the host shows its SMBIOS tables: sysfs3 (default) or sysfs2 as
                       files of the kernel, legacy in low physical memory, none

The BMC at the start:
  --watchdog SECONDS   soft watchdog enabled, with this time
  --connected yes|no   whether it takes the agent for connected (default: yes)
  --set NAME=VALUE     a variable of the configuration space, by name or number

Misbehaviour:
  --no-device          there is no device node
  --fault N:WHAT       at exchange N; N-M: at exchanges N to M; N+: from exchange N on.
                       Exchanges are counted from 1, a failed open of the device node is one.
                       WHAT is one of
      cc=CODE            refused with this completion code
      silent             no answer
      length=BYTES       answer cut or filled up to this length, completion code included
                         (273 is more than a receive takes)
      foreign-id         answer to another message id
      events=COUNT       asynchronous events before the answer
      commands=COUNT     incoming commands before the answer
      type=NUMBER        a record of this receive type before the answer
      slow=MS            answer after this time
      errno=NAME@CALL    open, send, wait, receive or close fails, for example EIO@send
  --fail-call N:ERRNO  device call N of all fails; N+: it and all that follow
  --raise-at-call N:SIGNAL
                       the process gets SIGNAL when it makes device call N; repeatable
)";
}

} // namespace sim
