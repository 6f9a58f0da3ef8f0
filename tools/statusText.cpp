#include "statusText.h"

#include "bladeText.h"
#include "confVariables.h"
#include "exchangeText.h"
#include "portRecordText.h"
#include "statusCheck.h"
#include "tavIpmiWatchdog.h"
#include "text.h"
#include "valueText.h"
#include "versionsText.h"

#include <algorithm>
#include <array>
#include <bit>

namespace tavStatus {

namespace {

using sim::padded;
using tavIpmi::TavIpmiWatchdog;

constexpr std::size_t nameWidth = 18;

std::string row(const std::string& name, const std::string& value) {
    return "  " + padded(name, nameWidth) + value + "\n";
}

std::string headText(const Status& status, std::span<const Finding> findings) {
    const std::string verdict = severityText(worstOf(findings));
    if (findings.empty()) {
        return verdict + ": " + summaryText(status) + "\n";
    }
    std::string text = verdict + ": " + std::to_string(findings.size()) +
                       (findings.size() == 1 ? " problem\n" : " problems\n");
    for (const Finding& finding : findings) {
        text += "  " + padded(severityText(finding.severity), 10) + finding.text + "\n";
    }
    return text;
}

std::string makerText(const Identity& identity, const std::optional<bool>& accepted) {
    std::string maker = std::to_string(identity.manufacturer);
    const std::string build = std::to_string(tavIpmi::iana_qmx);
    if (!accepted) {
        return maker + "; unknown whether it answers to this build's number, " + build;
    }
    if (!*accepted) {
        return maker + "; it refuses this build's number, " + build;
    }
    return maker + (maker == build ? ", the number of this build"
                                   : "; it answers to this build's number, " + build);
}

std::string serverText(const Status& status) {
    const BmcStatus& bmc = status.bmc;
    const bool asked = bmc.makerAccepted == true && bmc.reach == Reach::answering;
    std::string text = bmc.blade ? "blade in slot " + std::to_string(bmc.blade->slot)
                       : asked   ? "no blade"
                                 : "unknown whether a blade";
    text += status.host.product.empty() ? "" : ", " + status.host.product;
    return text + (status.host.kestrelbox ? ", KESTRELBOX line" : "");
}

std::string bmcTable(const Status& status) {
    std::string table = "\nBMC\n";
    if (const auto& identity = status.bmc.identity) {
        table += row("maker", makerText(*identity, status.bmc.makerAccepted));
        table += row("firmware", firmwareText(*identity) + " " + sim::hexText(identity->auxiliary) +
                                     ", IPMI " + std::to_string(identity->ipmiMajor) + "." +
                                     std::to_string(identity->ipmiMinor));
        table += row("product", std::to_string(identity->product) + ", device " +
                                    std::to_string(identity->deviceId) + ", revision " +
                                    std::to_string(identity->deviceRevision));
    } else {
        table += row("maker", "unknown");
    }
    return table + row("server", serverText(status));
}

/// Who set the timer up as the agent does, which other programs may do, too.
std::string likelyOwnerText(const BmcStatus& bmc, const HostStatus& host) {
    if (host.agents.empty()) {
        return "an agent that is gone or another program";
    }
    return watchdogWanted(bmc) && !timerHasOtherOwner(host) ? "the agent"
                                                            : "the agent or another program";
}

std::string ownerText(const BmcStatus& bmc, const HostStatus& host) {
    const auto& timer = *bmc.watchdog;
    const std::string use = sim::timerUseText(timer.timerUse.timer_use);
    if (agentsTimer(timer)) {
        return likelyOwnerText(bmc, host) + " (" + use + ", without an action)";
    }
    switch (timer.timerUse.timer_use) {
    case TavIpmiWatchdog::timer_use_sms_os:
        return "another program (" + use + "; the agent sets no action)";
    case TavIpmiWatchdog::timer_use_os_load:
        return timer.timerUse.timer_started != 0 ? "the boot (" + use + ")"
                                                 : "nobody, left for the next boot (" + use + ")";
    case TavIpmiWatchdog::timer_use_bios_frb:
    case TavIpmiWatchdog::timer_use_bios_post:
        return "the firmware (" + use + ")";
    case TavIpmiWatchdog::timer_use_oem:
        return "another one (" + use + ")";
    default:
        return "nobody, never set up";
    }
}

std::string stateText(const tavIpmi::TavWatchdogTimerGetRespData& timer) {
    const std::string whole = sim::countdownText(timer.initialCountdownValue);
    return timer.timerUse.timer_started != 0
               ? "runs, " + sim::countdownText(timer.currentCountdownValue) + " of " + whole +
                     " left"
               : "stopped, set to " + whole;
}

std::string interruptText(const tavIpmi::TavWatchdogTimerGetRespData& timer) {
    constexpr std::array names = {"",         "SMI",      "NMI",      "message interrupt",
                                  "reserved", "reserved", "reserved", "reserved"};
    const unsigned kind = timer.timerActions.pretimout_interrupt;
    return kind == 0 ? ""
                     : std::string(", ") + names[kind] + " " +
                           std::to_string(timer.preTimeoutInterval) + " s before";
}

std::string onExpiryText(const tavIpmi::TavWatchdogTimerGetRespData& timer) {
    const unsigned action = timer.timerActions.timeout_action;
    std::string text = action == TavIpmiWatchdog::timeout_action_no_action
                           ? "the BMC records it, nothing else"
                           : sim::timerActionText(action);
    text += timer.timerUse.no_log != 0 ? ", not logged" : "";
    return text + interruptText(timer) + (threatens(timer) ? "  <-- not the agent's" : "");
}

std::string valueOf(const BmcStatus& bmc, std::uint16_t id) {
    const auto value = bmc.confSpace.find(id);
    return value == bmc.confSpace.end()
               ? "unknown"
               : sim::valueText(sim::findConfVariable(id)->kind, value->second);
}

std::string timerTable(const BmcStatus& bmc, const HostStatus& host) {
    std::string table = "\nWatchdog timer\n";
    if (const auto& timer = bmc.watchdog) {
        table += row("owner", ownerText(bmc, host));
        table += row("state", stateText(*timer));
        table += row("on expiry", onExpiryText(*timer));
        table +=
            row("expired before",
                sim::expirationText(std::bit_cast<unsigned char>(timer->timerUseExpirationFlags)));
    } else {
        table += row("state", "unknown");
    }
    constexpr std::uint16_t enable = 66;
    constexpr std::uint16_t time = 67;
    return bmc.confSpace.empty()
               ? table
               : table + row("BMC's setting",
                             "soft watchdog " + valueOf(bmc, enable) + ", " + valueOf(bmc, time));
}

std::string processText(const Process& process) {
    return process.name + " " + std::to_string(process.number) +
           (process.service.empty() ? "" : " of " + process.service);
}

std::string processesText(std::span<const Process> processes, const char* none) {
    std::string text;
    for (const Process& process : processes) {
        text += (text.empty() ? "" : ", ") + processText(process);
    }
    return text.empty() ? none : text;
}

std::string pidFileText(const PidFile& file) {
    if (!file.present) {
        return "none";
    }
    return file.path + ", " + (file.number == 0 ? "without a number" : std::to_string(file.number));
}

std::string agentTable(const Status& status) {
    const auto& connected = status.bmc.agentConnected;
    const HostStatus& host = status.host;
    std::string others = host.watchdogModule ? "kernel module ipmi_watchdog" : "";
    if (!host.watchdogPrograms.empty() || others.empty()) {
        others += (others.empty() ? "" : ", ") + processesText(host.watchdogPrograms, "none");
    }
    const auto& enabled = host.serviceEnabled;
    return "\nAgent\n" + row("process", processesText(host.agents, "none")) +
           row("service", !enabled   ? "no systemd here"
                          : *enabled ? "tavd.service is enabled"
                                     : "tavd.service is not enabled") +
           row("pid file", pidFileText(host.pidFile)) +
           row("for the BMC", !connected ? "unknown"
                              : *connected
                                  ? "connected"
                                  : "not connected (only the agent's going is announced)") +
           row("other owners", others);
}

std::string interfaceText(const Interface& interface) {
    return interface.name.empty() ? "nothing"
                                  : std::string(interface.ipv4) + " of " + interface.name;
}

std::string slotText(const Slot& slot) {
    const std::string shown = slot.shown ? std::string(slot.shown) : "empty";
    const std::string state = slotStateText(slot.state);
    switch (slot.state) {
    case SlotState::right:
        return padded(shown, nameWidth) + padded(state, 12) + slot.expected.name;
    case SlotState::stale:
    case SlotState::missing:
        return padded(shown, nameWidth) + padded(state, 12) + "should be " +
               (slot.expected.name.empty() ? "empty" : interfaceText(slot.expected));
    case SlotState::unused:
    case SlotState::unreadable:
        break;
    }
    return slot.state == SlotState::unused ? shown : state;
}

std::string addressTable(const Status& status) {
    std::string table = "\nThe host's addresses at the BMC\n";
    for (const Slot& slot : status.slots) {
        table += row("slot " + std::to_string(slot.number), slotText(slot));
    }
    for (const Interface& interface : status.withoutSlot) {
        table += row("no slot", padded(std::string(interface.ipv4), nameWidth) +
                                    padded("more than fit", 15) + interface.name);
    }
    return status.slots.empty() ? table + row("slots", "unknown") : table;
}

std::string interfaceWith(const HostStatus& host, const MacAddress& mac) {
    const auto found = std::ranges::find(host.interfaces, mac, &Interface::mac);
    return found == host.interfaces.end() ? "" : found->name;
}

std::string bladeTable(const BladeStatus& blade, const HostStatus& host) {
    std::string table = "\nChassis\n";
    for (const LanPort& port : blade.ports) {
        const std::string name = interfaceWith(host, port.mac);
        table += row("LAN port " + std::to_string(port.number),
                     std::string(port.mac) + (port.enabled ? "" : ", not enabled") +
                         (name.empty() ? "" : ", " + name));
    }
    for (const BladeAddress& address : blade.addresses) {
        const std::string prefix =
            address.prefix ? "/" + std::to_string(*address.prefix) : std::string();
        table += row("management blade", sim::addressText(address.address) + prefix + ", " +
                                             sim::addressIndexText(address.index));
    }
    return table + (blade.secondMac ? row("its second MAC", std::string(blade.secondMac)) : "");
}

std::string portTable(const PortRecord& record) {
    return "\nPort information\n" + (record.fault.empty() ? "" : row("left alone", record.fault)) +
           sim::portInformationText(record.image);
}

std::string eepromTable(const BmcStatus& bmc) {
    std::string table = "\nEEPROM versions\n";
    for (unsigned number = 0; const auto& eeprom : bmc.eeproms) {
        table +=
            row("EEPROM " + std::to_string(number++), eeprom ? eepromText(*eeprom) : "unknown");
    }
    return table;
}

std::string confSpaceTable(const BmcStatus& bmc) {
    constexpr std::size_t longestName = 30;
    std::string table = "\nConfiguration space\n";
    for (const auto& [id, value] : bmc.confSpace) {
        const sim::ConfVariable* const variable = sim::findConfVariable(id);
        table += "  " + padded(std::to_string(id), 6) + padded(variable->name, longestName) +
                 sim::valueText(variable->kind, value) + "\n";
    }
    return bmc.confSpace.empty() ? table + row("variables", "unknown") : table;
}

} // namespace

std::string statusText(const Status& status) {
    const BmcStatus& bmc = status.bmc;
    std::string text = headText(status, findingsIn(status));
    if (bmc.answers == 0) {
        return text + agentTable(status);
    }
    text += bmcTable(status) + timerTable(bmc, status.host) + agentTable(status);
    if (bmc.makerAccepted == false) {
        return text;
    }
    return text + addressTable(status) + (bmc.blade ? bladeTable(*bmc.blade, status.host) : "") +
           (bmc.portRecord ? portTable(*bmc.portRecord) : "") + eepromTable(bmc) +
           confSpaceTable(bmc);
}

const char* slotStateText(SlotState state) noexcept {
    constexpr std::array texts = {"unused", "right", "stale", "missing", "unreadable"};
    return texts[static_cast<std::size_t>(state)];
}

std::string firmwareText(const Identity& identity) {
    return std::to_string(identity.firmwareMajor) + "." +
           sim::hexByte(identity.firmwareMinor).substr(2);
}

} // namespace tavStatus
