#include "bmcView.h"

#include "bladeText.h"
#include "exchangeText.h"
#include "portRecordText.h"
#include "text.h"
#include "valueText.h"

namespace sim {

namespace {

constexpr std::size_t numberWidth = 6;
constexpr std::size_t nameWidth = 30;

std::string row(const std::string& number, const std::string& name, const std::string& value) {
    return "  " + padded(number, numberWidth) + padded(name, nameWidth) + value + "\n";
}

std::string row(const std::string& name, const std::string& value) {
    return "  " + padded(name, numberWidth + nameWidth) + value + "\n";
}

std::string confSpaceTable(const ConfSpace& confSpace) {
    std::string table = "Configuration space\n";
    for (const auto& [id, value] : confSpace.values) {
        const ConfVariable* const variable = findConfVariable(id);
        table += variable == nullptr
                     ? row(std::to_string(id), "?", hexText(value))
                     : row(std::to_string(id), variable->name, valueText(variable->kind, value));
    }
    return table;
}

std::string watchdogTable(const WatchdogState& timer) {
    std::string table = "Watchdog timer\n";
    table += row("set up", timer.initialised ? "yes" : "never");
    table += row("use", timerUseText(timer.use));
    table += row("running", timer.running ? "yes" : "no");
    table += row("action", timerActionText(timer.action));
    table += row("countdown", countdownText(timer.initialCountdown));
    table += row("remaining", countdownText(timer.presentCountdown));
    table += row("expired uses", expirationText(timer.expirationFlags));
    return table;
}

std::string addressRows(const ManagementBlade& chassis) {
    std::string rows;
    for (const auto& [place, address] : chassis.bladeAddresses) {
        rows += row("port " + std::to_string(place.port) + ", " + addressIndexText(place.index),
                    addressText(address));
    }
    return rows.empty() ? row("addresses", "none yet") : rows;
}

std::string knownText(const std::string& text) {
    return text.empty() ? "none" : quoted(Bytes(text.begin(), text.end()));
}

std::string statusText(const ManagementBlade& chassis) {
    return chassis.osStatus ? osStatusText(*chassis.osStatus) +
                                  " (events: " + std::to_string(chassis.statusEvents) + ")"
                            : "unknown";
}

std::string managementBladeTable(const BladeLink& blade) {
    const ManagementBlade& chassis = blade.chassis;
    return "Management blade\n" + row("slot", std::to_string(blade.slotNumber)) +
           row("OS status", statusText(chassis)) +
           row("platform type", knownText(chassis.platformType)) +
           row("platform release", knownText(chassis.platformRelease)) + addressRows(chassis);
}

} // namespace

std::string bmcView(const Bmc& bmc) {
    return confSpaceTable(bmc.confSpace) + watchdogTable(bmc.watchdog.state()) +
           "Agent connection\n" +
           row("agent", bmc.agentConnection.connected ? "connected" : "not connected") +
           (bmc.blade ? managementBladeTable(*bmc.blade) : "") +
           (bmc.fru ? "Port information\n" + portInformationText(bmc.fru->image) : "");
}

std::string usageText(const SimDevice& device) {
    std::string kinds;
    for (int call = 0; const char* const name : deviceCallNames) {
        const unsigned long count = device.callCount(static_cast<DeviceCall>(call++));
        if (count != 0) {
            kinds += (kinds.empty() ? "" : ", ") + std::string(name) + " " + std::to_string(count);
        }
    }
    return "Device: " + std::to_string(device.exchangeCount()) + " exchanges, " +
           std::to_string(device.callCount()) + " calls (" + kinds + "), " +
           std::to_string(device.openCount()) + " descriptors open\n";
}

} // namespace sim
