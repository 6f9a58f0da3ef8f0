// A status for programs. The keys are documented in docs/status.md, and stay.

#include "bladeText.h"
#include "confVariables.h"
#include "exchangeText.h"
#include "statusCheck.h"
#include "statusForms.h"
#include "statusText.h"
#include "text.h"
#include "valueText.h"

#include <array>
#include <bit>
#include <nlohmann/json.hpp>

namespace tavStatus {

namespace {

using Json = nlohmann::ordered_json;

constexpr int schema = 1;

/// What is absent is null.
template <typename Value, typename Convert>
Json optionally(const std::optional<Value>& value, Convert convert) {
    return value ? convert(*value) : Json();
}
Json optionally(const std::optional<bool>& value) {
    return value ? Json(*value) : Json();
}

/// An empty text is null.
Json unlessEmpty(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

Json listOf(const auto& values, auto convert) {
    Json list = Json::array();
    for (const auto& value : values) {
        list.push_back(convert(value));
    }
    return list;
}

std::string lowerCase(std::string text) {
    for (char& letter : text) {
        letter = static_cast<char>('A' <= letter && letter <= 'Z' ? letter - 'A' + 'a' : letter);
    }
    return text;
}

Json findingJson(const Finding& finding) {
    return {{"severity", lowerCase(severityText(finding.severity))},
            {"key", finding.key},
            {"text", finding.text}};
}

const char* reachWord(Reach reach) {
    constexpr std::array words = {"answering", "no_device", "denied", "broken", "silent", "slow"};
    return words[static_cast<std::size_t>(reach)];
}

Json identityJson(const Identity& identity) {
    return {{"manufacturer", identity.manufacturer},
            {"product", identity.product},
            {"device", identity.deviceId},
            {"device_revision", identity.deviceRevision},
            {"firmware", firmwareText(identity)},
            {"auxiliary", identity.auxiliary},
            {"ipmi", std::to_string(identity.ipmiMajor) + "." + std::to_string(identity.ipmiMinor)},
            {"updating", identity.updating}};
}

Json bmcJson(const BmcStatus& bmc) {
    return {{"reach", reachWord(bmc.reach)},
            {"trouble", unlessEmpty(bmc.trouble)},
            {"answers", bmc.answers},
            {"maker_number", tavIpmi::iana_qmx},
            {"maker_number_accepted", optionally(bmc.makerAccepted)},
            {"identity", optionally(bmc.identity, identityJson)}};
}

double seconds(std::uint16_t counts) {
    return counts / 10.0;
}

/// The uses whose expiry is recorded.
Json expiredJson(const tavIpmi::TavWatchdogTimerGetRespData& timer) {
    const unsigned flags = std::bit_cast<unsigned char>(timer.timerUseExpirationFlags);
    Json uses = Json::array();
    for (unsigned use = 0; use < 8; ++use) {
        if ((flags >> use & 1U) != 0) {
            uses.push_back(sim::timerUseText(use));
        }
    }
    return uses;
}

Json watchdogJson(const tavIpmi::TavWatchdogTimerGetRespData& timer) {
    return {{"use", sim::timerUseText(timer.timerUse.timer_use)},
            {"action", sim::timerActionText(timer.timerActions.timeout_action)},
            {"running", timer.timerUse.timer_started != 0},
            {"agents", agentsTimer(timer)},
            {"threatens", threatens(timer)},
            {"initial_seconds", seconds(timer.initialCountdownValue)},
            {"remaining_seconds", seconds(timer.currentCountdownValue)},
            {"pre_timeout_interrupt", timer.timerActions.pretimout_interrupt + 0},
            {"pre_timeout_seconds", timer.preTimeoutInterval},
            {"logged", timer.timerUse.no_log == 0},
            {"expired", expiredJson(timer)}};
}

Json processJson(const Process& process) {
    return {{"number", process.number},
            {"name", process.name},
            {"service", unlessEmpty(process.service)}};
}

Json agentJson(const Status& status) {
    const PidFile& file = status.host.pidFile;
    return {{"connected", optionally(status.bmc.agentConnected)},
            {"processes", listOf(status.host.agents, processJson)},
            {"service_enabled", optionally(status.host.serviceEnabled)},
            {"pid_file",
             {{"path", file.path},
              {"present", file.present},
              {"number", file.number == 0 ? Json() : Json(file.number)}}}};
}

Json interfaceJson(const Interface& interface) {
    return {{"interface", interface.name},
            {"address", std::string(interface.ipv4)},
            {"mac", std::string(interface.mac)}};
}

Json slotJson(const Slot& slot) {
    const bool expected = !slot.expected.name.empty();
    return {{"slot", slot.number},
            {"state", slotStateText(slot.state)},
            {"shown", slot.shown ? Json(std::string(slot.shown)) : Json()},
            {"expected", expected ? interfaceJson(slot.expected) : Json()}};
}

Json hostJson(const HostStatus& host) {
    return {{"product", unlessEmpty(host.product)},
            {"kestrelbox", host.kestrelbox},
            {"watchdog_module", host.watchdogModule},
            {"watchdog_programs", listOf(host.watchdogPrograms, processJson)},
            {"interfaces", listOf(host.interfaces, interfaceJson)},
            {"interface_trouble", unlessEmpty(host.interfaceTrouble)}};
}

Json bladeJson(const BladeStatus& blade) {
    const auto port = [](const LanPort& lan) -> Json {
        return {{"port", lan.number}, {"mac", std::string(lan.mac)}, {"enabled", lan.enabled}};
    };
    const auto address = [](const BladeAddress& known) -> Json {
        return {{"kind", sim::addressIndexText(known.index)},
                {"address", sim::addressText(known.address)},
                {"prefix", known.prefix ? Json(*known.prefix) : Json()}};
    };
    return {{"slot", blade.slot},
            {"ports", listOf(blade.ports, port)},
            {"management_blade",
             {{"ipv6", blade.ipv6Capable},
              {"addresses", listOf(blade.addresses, address)},
              {"second_mac", blade.secondMac ? Json(std::string(blade.secondMac)) : Json()}}}};
}

Json functionJson(const PortFunction& function) {
    const bool nic = function.technology == "NIC";
    return {{"module", function.module},
            {"port", function.port},
            {"function", function.function},
            {"technology", function.technology},
            {"mac", nic ? Json(std::string(function.activeMac)) : Json()},
            {"manufactured_mac", nic ? Json(std::string(function.manufacturedMac)) : Json()},
            {"addresses", listOf(function.addresses, sim::addressText)}};
}

Json portRecordJson(const PortRecord& record) {
    return {{"sound", record.fault.empty()},
            {"fault", unlessEmpty(record.fault)},
            {"format", record.format},
            {"bytes", record.length},
            {"header_checksum_right", record.headerChecksumRight},
            {"body_checksum_right", record.bodyChecksumRight},
            {"functions", listOf(record.functions, functionJson)}};
}

Json eepromJson(const EepromRecord& eeprom) {
    const auto version = [](unsigned char high, unsigned char low) {
        return std::to_string(high) + "." + sim::hexByte(low).substr(2);
    };
    return {{"status", eeprom.status},
            {"firmware", version(eeprom.MajorFWRevision, eeprom.MinorFWRevision)},
            {"sdr", version(eeprom.MajorSDRRevision, eeprom.MinorSDRRevision)},
            {"sdr_id", eeprom.SDRR_ID_msb << 8 | eeprom.SDRR_ID_lsb},
            {"booter", version(eeprom.MajorBooterRevision, eeprom.MinorBooterRevision)}};
}

/// A value whose length does not fit its kind comes as its bytes.
Json valueJson(sim::ValueKind kind, const sim::Bytes& value) {
    if (!sim::lengthFits(kind, value.size())) {
        return value;
    }
    switch (kind) {
    case sim::ValueKind::text:
        return std::string(value.begin(), value.end());
    case sim::ValueKind::flag:
        return value[0] == 1;
    case sim::ValueKind::seconds:
        return value[0] | value[1] << 8;
    case sim::ValueKind::bladeNumber:
        return value[0];
    case sim::ValueKind::ipv4Address:
    case sim::ValueKind::watchdogBehaviour:
        break;
    }
    return sim::valueText(kind, value);
}

Json confSpaceJson(const BmcStatus& bmc) {
    Json variables = Json::object();
    for (const auto& [id, value] : bmc.confSpace) {
        const sim::ConfVariable* const variable = sim::findConfVariable(id);
        variables[variable->name] = valueJson(variable->kind, value);
    }
    return variables;
}

} // namespace

std::string jsonText(const Status& status) {
    const auto findings = findingsIn(status);
    const Json whole = {
        {"schema", schema},
        {"version", TAV_VERSION},
        {"severity", lowerCase(severityText(worstOf(findings)))},
        {"findings", listOf(findings, findingJson)},
        {"bmc", bmcJson(status.bmc)},
        {"watchdog", optionally(status.bmc.watchdog, watchdogJson)},
        {"agent", agentJson(status)},
        {"host", hostJson(status.host)},
        {"slots", listOf(status.slots, slotJson)},
        {"without_slot", listOf(status.withoutSlot, interfaceJson)},
        {"blade", optionally(status.bmc.blade, bladeJson)},
        {"port_information", optionally(status.bmc.portRecord, portRecordJson)},
        {"eeproms", listOf(status.bmc.eeproms,
                           [](const auto& eeprom) { return optionally(eeprom, eepromJson); })},
        {"configuration_space", confSpaceJson(status.bmc)}};
    // Whoever filled the BMC's variables need not have used UTF-8.
    return whole.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace tavStatus
