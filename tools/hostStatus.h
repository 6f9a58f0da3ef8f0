#pragma once

#include "IPv4Address.h"
#include "MacAddress.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace tavStatus {

/// Where it can be seen what runs.
struct HostPlaces {
    std::string processes = "/proc";
    std::string modules = "/sys/module";
    std::string units = "/etc/systemd/system"; ///< what the administrator has systemd start
};

/// A process that matters to the BMC.
struct Process {
    pid_t number;
    std::string name;
    std::string service; ///< systemd's unit; empty if it belongs to none
};

/// The file that keeps a second daemon from starting.
struct PidFile {
    std::string path;
    bool present = false;
    pid_t number = 0; ///< 0: it holds none, or cannot be read
};

/// A network interface whose addresses the agent reports.
struct Interface {
    std::string name;
    IPv4Address ipv4;
    MacAddress mac;
};

/// The host's side of the status.
struct HostStatus {
    std::string product; ///< as its firmware names the machine; empty if it does not
    bool kestrelbox = false;
    PidFile pidFile;
    std::vector<Process> agents;
    std::optional<bool> serviceEnabled; ///< absent without systemd
    /// Programs that may own the watchdog timer besides the agent.
    std::vector<Process> watchdogPrograms;
    bool watchdogModule = false;       ///< the kernel's ipmi_watchdog
    std::vector<Interface> interfaces; ///< in the order in which they get their slots
    std::string interfaceTrouble;      ///< why there are none; it ends the agent's work, too
};

HostStatus lookAtHost(const HostPlaces& places = {});

} // namespace tavStatus
