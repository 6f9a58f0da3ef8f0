#include "hostStatus.h"

#include "errorText.h"
#include "hostPaths.h"
#include "lineReader.h"
#include "tavIp.h"
#include "tavSmbios.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <string_view>

#include <unistd.h>

namespace tavStatus {

namespace {

/// tav_trace is the agent, too, with a recorder in it.
constexpr std::array<std::string_view, 2> agentNames = {"tav_init", "tav_trace"};
constexpr std::string_view watchdogProgram = "bmc-watchdog";

/// The number that the text is; 0 for anything else.
pid_t numberIn(std::string_view text) {
    const char* const end = text.data() + text.size();
    pid_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && stop == end && number > 0 ? number : 0;
}

/// The unit that the process runs for, by its control group: ".../tav_init.service".
std::string serviceOf(const std::string& process) {
    LineReader groups(process + "/cgroup");
    while (const auto line = groups.next()) {
        const std::size_t slash = line->rfind('/');
        if (slash != std::string::npos && line->ends_with(".service")) {
            return line->substr(slash + 1);
        }
    }
    return "";
}

/// The name of a process that lives; empty for others.
std::string nameOf(const std::filesystem::path& folder) {
    // "NUMBER (NAME) STATE ...", where the name may hold anything.
    const std::string line = LineReader(folder / "stat").next().value_or("");
    const std::size_t begin = line.find('(');
    const std::size_t end = line.rfind(") ");
    if (begin == std::string::npos || end == std::string::npos || end < begin) {
        return "";
    }
    const std::string_view state = std::string_view(line).substr(end + 2, 1);
    return state == "Z" || state == "X" ? "" : line.substr(begin + 1, end - begin - 1);
}

void takeProcess(HostStatus& host, const std::filesystem::path& folder) {
    const pid_t number = numberIn(folder.filename().native());
    const std::string name = number == 0 ? "" : nameOf(folder);
    if (std::ranges::find(agentNames, name) != agentNames.end()) {
        host.agents.push_back({number, name, serviceOf(folder)});
    } else if (name == watchdogProgram) {
        host.watchdogPrograms.push_back({number, name, serviceOf(folder)});
    }
}

void findProcesses(HostStatus& host, const std::string& processes) {
    std::error_code error;
    std::filesystem::directory_iterator entry(processes, error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        takeProcess(host, entry->path());
        entry.increment(error);
    }
    std::ranges::sort(host.agents, {}, &Process::number);
    std::ranges::sort(host.watchdogPrograms, {}, &Process::number);
}

/// Whether systemd starts the agent by itself. How that went only its own programs tell.
std::optional<bool> isServiceEnabled(const std::string& units) {
    std::error_code error;
    std::filesystem::directory_iterator entry(units, error);
    if (error) {
        return std::nullopt;
    }
    bool enabled = false;
    while (!error && entry != std::filesystem::directory_iterator()) {
        const std::filesystem::path& folder = entry->path();
        std::error_code absent;
        enabled = enabled || (folder.extension() == ".wants" &&
                              std::filesystem::is_symlink(folder / "tavd.service", absent));
        entry.increment(error);
    }
    return enabled;
}

PidFile lookAtPidFile() {
    PidFile file{.path = hostPaths().pidFile};
    file.present = ::access(file.path.c_str(), F_OK) == 0;
    if (file.present) {
        file.number = numberIn(LineReader(file.path).next().value_or(""));
    }
    return file;
}

void listInterfaces(HostStatus& host) {
    try {
        const tavIp::TavIp inventory;
        for (const std::uint32_t index : tavIp::reportedInterfaces(inventory.getIfParameters())) {
            host.interfaces.push_back({inventory.getName(index), inventory.getIpv4Address(index),
                                       inventory.getMacAddress(index)});
        }
    } catch (const tavIp::TavIpError& error) {
        host.interfaceTrouble = errorText(error);
    }
}

/// Only where the kernel publishes the tables: the search without that goes through all memory, and
/// nobody who asks for a status waits so long.
void identifyMachine(HostStatus& host) {
    if (::access(hostPaths().smbiosEntryPoint, R_OK) != 0) {
        return;
    }
    try {
        const tavSmbios::TavSmbios tables;
        host.kestrelbox = tavSmbios::isKestrelbox(tables);
        if (const auto* const system =
                tables.getFirstEntry(tavSmbios::smbios_type_SystemInformation)) {
            host.product = tavSmbios::TavSmbios::getSmbiosStringS(
                system,
                tavSmbios::TavSmbios::record<tavSmbios::SMBSystemInformation>(*system).productName);
        }
    } catch (const std::logic_error&) {
        // The rest of the status does not depend on the machine's name.
    }
}

} // namespace

HostStatus lookAtHost(const HostPlaces& places) {
    HostStatus host;
    identifyMachine(host);
    host.pidFile = lookAtPidFile();
    findProcesses(host, places.processes);
    host.serviceEnabled = isServiceEnabled(places.units);
    host.watchdogModule = ::access((places.modules + "/ipmi_watchdog").c_str(), F_OK) == 0;
    listInterfaces(host);
    return host;
}

} // namespace tavStatus
