// What of a status is wrong, and how much.

#include "statusCheck.h"

#include "exchangeText.h"
#include "tavIpmiCmd.h"
#include "tavIpmiWatchdog.h"

#include <algorithm>
#include <array>

namespace tavStatus {

namespace {

using Findings = std::vector<Finding>;

/// CRITICAL counts more than WARNING, and what is not known less than what is known to be wrong.
int weight(const Finding& finding) {
    constexpr std::array weights = {0, 2, 3, 1};
    return weights[static_cast<std::size_t>(finding.severity)];
}

void add(Findings& findings, Severity severity, const char* key, std::string text) {
    findings.push_back({severity, key, std::move(text)});
}

const char* reachKey(Reach reach) {
    constexpr std::array keys = {"",           "no_device", "device_denied", "driver_fails",
                                 "bmc_silent", "bmc_slow"};
    return keys[static_cast<std::size_t>(reach)];
}

void judgeReach(const BmcStatus& bmc, Findings& findings) {
    if (bmc.reach == Reach::answering) {
        return;
    }
    const bool lost = bmc.reach == Reach::silent || bmc.reach == Reach::broken;
    add(findings, lost ? Severity::critical : Severity::unknown, reachKey(bmc.reach), bmc.trouble);
}

std::string refusedNumberText(const BmcStatus& bmc) {
    std::string text =
        "the BMC refuses all that is asked under the maker's number of this build, " +
        std::to_string(tavIpmi::iana_qmx);
    if (bmc.identity && bmc.identity->manufacturer != tavIpmi::iana_qmx) {
        text += "; its own is " + std::to_string(bmc.identity->manufacturer);
    }
    return text;
}

void judgeBmc(const BmcStatus& bmc, const HostStatus& host, Findings& findings) {
    if (bmc.makerAccepted == false) {
        add(findings, Severity::critical, "maker_refused", refusedNumberText(bmc));
    } else if (!bmc.makerAccepted && bmc.reach == Reach::answering) {
        add(findings, Severity::unknown, "maker_unknown",
            "the BMC's answers do not tell whether it knows the maker's number of this build, " +
                std::to_string(tavIpmi::iana_qmx) + ": ask again");
    } else if (bmc.makerAccepted == true && bmc.confSpace.empty()) {
        add(findings, Severity::critical, "no_configuration_space",
            "the BMC has no configuration space: it shows no address");
    }
    const bool told = bmc.identity ? bmc.identity->agentTakesIt : bmc.reach != Reach::answering;
    if (!told && !host.kestrelbox) {
        add(findings, Severity::critical, "no_identity",
            "the BMC does not tell who it is" +
                std::string(bmc.identity ? ", or not at the length that the agent wants" : "") +
                ": the agent ends at once");
    }
    if (bmc.identity && bmc.identity->updating) {
        add(findings, Severity::warning, "bmc_updating",
            "the BMC's firmware or sensor data are being replaced");
    }
}

std::string otherOwnersText(const HostStatus& host) {
    std::string text = host.watchdogModule ? "the kernel's module ipmi_watchdog" : "";
    for (const Process& program : host.watchdogPrograms) {
        text += (text.empty() ? "" : " and ") + program.name + " (process " +
                std::to_string(program.number) + ")";
    }
    return text;
}

void judgeForeignTimer(const Status& status, Findings& findings) {
    const auto& timer = *status.bmc.watchdog;
    if (threatens(timer)) {
        const bool disputed = watchdogWanted(status.bmc) && !status.host.agents.empty();
        add(findings, disputed ? Severity::critical : Severity::warning, "foreign_timer",
            "another owner's watchdog timer (" + sim::timerUseText(timer.timerUse.timer_use) +
                ") runs, and ends in a " + sim::timerActionText(timer.timerActions.timeout_action));
    }
}

void judgeTimer(const Status& status, Findings& findings) {
    if (!status.bmc.watchdog) {
        return;
    }
    const auto& timer = *status.bmc.watchdog;
    judgeForeignTimer(status, findings);
    const bool kept = agentsTimer(timer) && timer.timerUse.timer_started != 0;
    if (watchdogWanted(status.bmc) && !kept) {
        add(findings, Severity::critical, "watchdog_not_kept",
            "the soft watchdog is enabled, but the agent's timer does not run");
    }
    if (timer.timerUseExpirationFlags.sms_os != 0) {
        add(findings, Severity::warning, "watchdog_expired",
            "the running system's watchdog timer has run out before");
    }
    const bool agentUsesIt = watchdogWanted(status.bmc) || !status.host.agents.empty();
    if (agentUsesIt && timerHasOtherOwner(status.host)) {
        add(findings, Severity::warning, "two_owners",
            "the timer has another owner besides the agent: " + otherOwnersText(status.host));
    }
}

void judgePidFile(const HostStatus& host, Findings& findings) {
    const bool runs = std::ranges::any_of(
        host.agents, [&host](const Process& agent) { return agent.number == host.pidFile.number; });
    if (host.pidFile.present && !runs) {
        add(findings, Severity::warning, "stale_pid_file",
            "the pid file " + host.pidFile.path +
                " names no running agent, and keeps a daemon from starting: delete it");
    }
}

void judgeAgent(const Status& status, Findings& findings) {
    judgePidFile(status.host, findings);
    if (status.bmc.answers == 0) {
        return; // a machine without a BMC needs no agent
    }
    if (status.host.agents.empty()) {
        add(findings, Severity::warning, "agent_not_running",
            "no agent runs: the BMC does not learn what changes on this host");
    }
    if (!status.host.interfaceTrouble.empty()) {
        add(findings, Severity::critical, "no_inventory",
            "the network interfaces cannot be listed, which ends an agent's work: " +
                status.host.interfaceTrouble);
    }
}

std::string slotProblem(const Slot& slot) {
    const std::string number = "address slot " + std::to_string(slot.number);
    const std::string expected = std::string(slot.expected.ipv4) + " of " + slot.expected.name;
    switch (slot.state) {
    case SlotState::stale:
        return number + " shows " + std::string(slot.shown) + " instead of " +
               (slot.expected.ipv4 ? expected : "none");
    case SlotState::missing:
        return number + " is empty instead of showing " + expected;
    case SlotState::unreadable:
        return number + " cannot be read";
    case SlotState::unused:
    case SlotState::right:
        break;
    }
    return "";
}

void judgeSlots(const Status& status, Findings& findings) {
    constexpr std::array keys = {"", "", "slot_stale", "slot_missing", "slot_unreadable"};
    for (const Slot& slot : status.slots) {
        if (std::string text = slotProblem(slot); !text.empty()) {
            add(findings, Severity::warning, keys[static_cast<std::size_t>(slot.state)],
                std::move(text));
        }
    }
}

/// The IPv4 address in a port's list; 0.0.0.0 if there is none.
IPv4Address shownBy(const PortFunction& port) {
    IPv4Address shown;
    if (!port.addresses.empty() && port.addresses.front().size() == sizeof shown.v) {
        shown = port.addresses.front().data();
    }
    return shown;
}

/// The agent empties all ports before each interface, so that the last one's address stays.
IPv4Address expectedOf(const PortFunction& port, const HostStatus& host) {
    if (host.interfaces.empty()) {
        return {};
    }
    const Interface& last = host.interfaces.back();
    return last.mac == port.activeMac || last.mac == port.manufacturedMac ? last.ipv4
                                                                          : IPv4Address();
}

void judgePort(const PortFunction& port, const HostStatus& host, Findings& findings) {
    const IPv4Address shown = shownBy(port);
    const IPv4Address expected = expectedOf(port, host);
    if (shown == expected) {
        return;
    }
    const std::string place = "port " + std::to_string(port.port) + " of module " +
                              std::to_string(port.module) + " in the port information ";
    add(findings, Severity::warning, shown ? "port_stale" : "port_missing",
        place + (shown ? "shows " + std::string(shown) : "is empty") + " instead of " +
            (expected ? std::string(expected) : "none"));
}

void judgePortRecord(const Status& status, Findings& findings) {
    if (!status.bmc.portRecord) {
        return;
    }
    const PortRecord& record = *status.bmc.portRecord;
    if (!record.fault.empty()) {
        add(findings, Severity::warning, "port_record_unsound",
            "the agent leaves the port information alone: " + record.fault);
    }
    for (const PortFunction& port : record.functions) {
        if (port.activeMac && status.host.interfaceTrouble.empty()) {
            judgePort(port, status.host, findings);
        }
    }
}

std::string agentText(const HostStatus& host) {
    const Process& agent = host.agents.front();
    return "agent " + std::to_string(agent.number) + " runs";
}

std::string slotsText(const Status& status) {
    const auto shown = std::ranges::count(status.slots, SlotState::right, &Slot::state);
    return std::to_string(shown) + " of " + std::to_string(status.host.interfaces.size()) +
           " addresses shown";
}

} // namespace

std::vector<Finding> findingsIn(const Status& status) {
    Findings findings;
    judgeReach(status.bmc, findings);
    judgeBmc(status.bmc, status.host, findings);
    judgeTimer(status, findings);
    judgeAgent(status, findings);
    judgeSlots(status, findings);
    judgePortRecord(status, findings);
    std::ranges::stable_sort(findings, std::ranges::greater{}, weight);
    return findings;
}

Severity worstOf(std::span<const Finding> findings) noexcept {
    return findings.empty() ? Severity::ok : findings.front().severity;
}

const char* severityText(Severity severity) noexcept {
    constexpr std::array texts = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    return texts[static_cast<std::size_t>(severity)];
}

std::string summaryText(const Status& status) {
    std::string text = "the BMC answers";
    text += status.host.agents.empty() ? "" : ", " + agentText(status.host);
    text += status.slots.empty() ? "" : ", " + slotsText(status);
    const auto& timer = status.bmc.watchdog;
    if (timer && timer->timerUse.timer_started != 0) {
        text +=
            ", " + sim::countdownText(timer->currentCountdownValue) + " left on the watchdog timer";
    }
    return text;
}

std::string checkText(const Status& status) {
    const Findings findings = findingsIn(status);
    std::string reasons;
    for (const Finding& finding : findings) {
        reasons += (reasons.empty() ? "" : "; ") + finding.text;
    }
    return std::string("TAV ") + severityText(worstOf(findings)) + " - " +
           (reasons.empty() ? summaryText(status) : reasons) + "\n";
}

} // namespace tavStatus
