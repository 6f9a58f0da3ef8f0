// A status as metrics. Every family is there in every situation in which it has a value, and ends
// with what OpenMetrics wants at the end, which is a comment for older readers.

#include "exchangeText.h"
#include "statusCheck.h"
#include "statusForms.h"
#include "statusText.h"
#include "tavConfSpaceData.h"
#include "text.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace tavStatus {

namespace {

using Labels = std::vector<std::pair<const char*, std::string>>;

/// As the format wants it between quotes.
std::string escaped(const std::string& value) {
    std::string text;
    for (const char character : value) {
        if (character == '\\' || character == '"') {
            text += '\\';
        }
        text += character == '\n' ? std::string("\\n") : std::string(1, character);
    }
    return text;
}

std::string labelText(const Labels& labels) {
    std::string text;
    for (const auto& [name, value] : labels) {
        text += (text.empty() ? "{" : ",") + std::string(name) + "=\"" + escaped(value) + "\"";
    }
    return text.empty() ? "" : text + "}";
}

/// The lines of all families.
class MetricsWriter {
  public:
    /// Begins a family: all its samples follow at once.
    void family(const char* name_, const char* help) {
        name = name_;
        lines += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " gauge\n";
    }
    void sample(const std::string& value, const Labels& labels = {}) {
        lines += name + labelText(labels) + " " + value + "\n";
    }
    void sample(bool value, const Labels& labels) {
        sample(std::string(value ? "1" : "0"), labels);
    }
    /// A family with one sample.
    void single(const char* name_, const char* help, const std::string& value) {
        family(name_, help);
        sample(value);
    }
    void flag(const char* name_, const char* help, bool value) {
        single(name_, help, value ? "1" : "0");
    }
    void flag(const char* name_, const char* help, const std::optional<bool>& value) {
        if (value) {
            flag(name_, help, *value);
        }
    }
    std::string text() const { return lines + "# EOF\n"; }

  private:
    std::string name;
    std::string lines;
};

void writeFindings(MetricsWriter& metrics, const Status& status) {
    const auto findings = findingsIn(status);
    metrics.single("tav_severity", "The worst finding: 0 ok, 1 warning, 2 critical, 3 unknown.",
                   std::to_string(static_cast<int>(worstOf(findings))));
    if (findings.empty()) {
        return;
    }
    metrics.family("tav_finding", "What is not as it should be, by its key; 1 while it is so.");
    std::vector<std::string> seen; // several slots may have the same trouble
    for (const Finding& finding : findings) {
        if (std::ranges::find(seen, finding.key) == seen.end()) {
            seen.emplace_back(finding.key);
            metrics.sample(true, {{"key", finding.key}});
        }
    }
}

void writeBmc(MetricsWriter& metrics, const BmcStatus& bmc) {
    metrics.flag("tav_bmc_up", "Whether the BMC answered to the last question.",
                 bmc.reach == Reach::answering);
    if (const auto& identity = bmc.identity) {
        metrics.family("tav_bmc_info", "Who the BMC is; always 1.");
        metrics.sample(true, {{"manufacturer", std::to_string(identity->manufacturer)},
                              {"product", std::to_string(identity->product)},
                              {"firmware", firmwareText(*identity)}});
    }
    metrics.flag("tav_bmc_maker_number_accepted",
                 "Whether the BMC answers to the maker's number of this build.", bmc.makerAccepted);
}

void writeWatchdog(MetricsWriter& metrics, const BmcStatus& bmc) {
    if (!bmc.watchdog) {
        return;
    }
    const auto& timer = *bmc.watchdog;
    metrics.family("tav_watchdog_info", "What the timer is set up for; always 1.");
    metrics.sample(true, {{"use", sim::timerUseText(timer.timerUse.timer_use)},
                          {"action", sim::timerActionText(timer.timerActions.timeout_action)}});
    metrics.flag("tav_watchdog_running", "Whether the timer counts down.",
                 timer.timerUse.timer_started != 0);
    metrics.flag("tav_watchdog_threatens",
                 "Whether the timer counts down to an action that is not the agent's.",
                 threatens(timer));
    metrics.single("tav_watchdog_initial_seconds", "Time that the timer counts down from.",
                   sim::decimal(timer.initialCountdownValue / 10.0, 1));
    metrics.single("tav_watchdog_remaining_seconds", "Time that is left on the timer.",
                   sim::decimal(timer.currentCountdownValue / 10.0, 1));
    if (bmc.confSpace.contains(TavConfSpaceData::conf_soft_watchdog_enable)) {
        metrics.flag("tav_watchdog_wanted", "Whether the BMC's soft watchdog is enabled.",
                     watchdogWanted(bmc));
    }
}

void writeAgent(MetricsWriter& metrics, const Status& status) {
    metrics.flag("tav_agent_connected", "Whether the BMC takes the agent for connected.",
                 status.bmc.agentConnected);
    metrics.single("tav_agent_processes", "Agents that run on this host.",
                   std::to_string(status.host.agents.size()));
    metrics.single(
        "tav_watchdog_other_owners",
        "Programs and modules besides the agent that may own the timer.",
        std::to_string(status.host.watchdogPrograms.size() + (status.host.watchdogModule ? 1 : 0)));
}

void writeSlots(MetricsWriter& metrics, const Status& status) {
    if (status.slots.empty()) {
        return;
    }
    metrics.family("tav_address_slot", "State of the BMC's address slots; 1 for the present one.");
    for (const Slot& slot : status.slots) {
        for (const SlotState state : {SlotState::unused, SlotState::right, SlotState::stale,
                                      SlotState::missing, SlotState::unreadable}) {
            metrics.sample(state == slot.state, {{"slot", std::to_string(slot.number)},
                                                 {"state", slotStateText(state)}});
        }
    }
    metrics.single("tav_addresses_without_slot", "Addresses of the host that do not fit.",
                   std::to_string(status.withoutSlot.size()));
}

} // namespace

std::string metricsText(const Status& status) {
    MetricsWriter metrics;
    writeFindings(metrics, status);
    writeBmc(metrics, status.bmc);
    writeWatchdog(metrics, status.bmc);
    writeAgent(metrics, status);
    writeSlots(metrics, status);
    if (const auto& record = status.bmc.portRecord) {
        metrics.flag("tav_port_record_sound", "Whether the agent can use the port information.",
                     record->fault.empty());
    }
    return metrics.text();
}

} // namespace tavStatus
