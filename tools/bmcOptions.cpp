#include "bmcOptions.h"

#include "valueText.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace sim {

namespace {

constexpr std::uint16_t softWatchdogEnable = 66;
constexpr std::uint16_t softWatchdogTime = 67;

void addValue(BmcOptions& options, std::string_view name, const std::string& value) {
    const ConfVariable& variable = namedConfVariable(name);
    options.values.emplace_back(variable.id, parseValue(variable.kind, value));
}

void takeSet(BmcOptions& options, const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw std::invalid_argument("'" + text + "' is not NAME=VALUE");
    }
    addValue(options, text.substr(0, equals), text.substr(equals + 1));
}

void takeWatchdog(BmcOptions& options, const std::string& text) {
    addValue(options, std::to_string(softWatchdogEnable), "enabled");
    addValue(options, std::to_string(softWatchdogTime), text);
}

void takeSpeed(BmcOptions& options, const std::string& text) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, options.speed);
    if (error != std::errc{} || stop != end || !(options.speed > 0 && options.speed <= 1e6)) {
        throw std::invalid_argument("'" + text + "' is not a factor");
    }
}

void takeConnected(BmcOptions& options, const std::string& text) {
    if (text != "yes" && text != "no") {
        throw std::invalid_argument("'" + text + "' is neither yes nor no");
    }
    options.connected = text == "yes";
}

const Option& findOption(const std::vector<Option>& known, std::string_view name) {
    const auto found = std::ranges::find(known, name, &Option::name);
    if (found == known.end()) {
        throw UsageError("unknown option '" + std::string(name) + "'");
    }
    return *found;
}

void takeOption(const Option& option, const char* value) {
    if (option.hasValue && value == nullptr) {
        throw UsageError(option.name + " needs a value");
    }
    try {
        option.take(option.hasValue ? value : "");
    } catch (const std::invalid_argument& error) {
        throw UsageError(option.name + ": " + error.what());
    }
}

} // namespace

std::span<char*> parseOptions(const std::vector<Option>& known, std::span<char*> arguments) {
    std::size_t next = 0;
    while (next < arguments.size() && std::string_view(arguments[next]) != "--") {
        const Option& option = findOption(known, arguments[next]);
        takeOption(option, next + 1 < arguments.size() ? arguments[next + 1] : nullptr);
        next += option.hasValue ? 2 : 1;
    }
    return arguments.subspan(std::min(next + 1, arguments.size()));
}

std::vector<Option> bmcOptionTable(BmcOptions& options) {
    using Text = const std::string&;
    return {
        {"--help", false, [&options](Text) { options.help = true; }},
        {"--version", false, [&options](Text) { options.version = true; }},
        {"--quiet", false, [&options](Text) { options.quiet = true; }},
        {"--trace", true, [&options](Text value) { options.trace = value; }},
        {"--speed", true, [&options](Text value) { takeSpeed(options, value); }},
        {"--machine", true, [&options](Text value) { options.machine = &namedMachine(value); }},
        {"--connected", true, [&options](Text value) { takeConnected(options, value); }},
        {"--set", true, [&options](Text value) { takeSet(options, value); }},
        {"--watchdog", true, [&options](Text value) { takeWatchdog(options, value); }},
    };
}

const char* bmcUsage() noexcept {
    return R"(  --speed N            let time pass N times faster
  --trace FILE         append the output to FILE instead of standard output
  --quiet              show only how the BMC is left at the end
  --version            say which version this is

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

The BMC at the start:
  --watchdog SECONDS   soft watchdog enabled, with this time
  --connected yes|no   whether it takes the agent for connected (default: yes)
  --set NAME=VALUE     a variable of the configuration space, by name or number
)";
}

void setUp(Bmc& bmc, const BmcOptions& options) {
    options.machine->setUp(bmc);
    bmc.agentConnection.connected = options.connected;
    for (const auto& [id, value] : options.values) {
        bmc.confSpace.values[id] = value;
    }
}

} // namespace sim
