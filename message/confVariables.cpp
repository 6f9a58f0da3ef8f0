#include "confVariables.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

constexpr std::array<ConfVariable, 21> variables = {{
    {64, "conf_boot_watchdog_enable", ValueKind::flag},
    {65, "conf_boot_watchdog_time", ValueKind::seconds},
    {66, "conf_soft_watchdog_enable", ValueKind::flag},
    {67, "conf_soft_watchdog_time", ValueKind::seconds},
    {116, "conf_boot_watchdog_behaviour", ValueKind::watchdogBehaviour},
    {117, "conf_soft_watchdog_behaviour", ValueKind::watchdogBehaviour},
    {512, "conf_cabinet_location", ValueKind::text},
    {513, "conf_system_name", ValueKind::text},
    {514, "conf_system_biosversion", ValueKind::text},
    {515, "conf_system_description", ValueKind::text},
    {516, "conf_system_contact", ValueKind::text},
    {517, "conf_server_cabinetmodel", ValueKind::text},
    {518, "conf_server_chassismodel", ValueKind::text},
    {519, "conf_server_serialnumber", ValueKind::text},
    {520, "conf_server_vendorname", ValueKind::text},
    {522, "conf_server_IPAddress1", ValueKind::ipv4Address},
    {523, "conf_server_IPAddress2", ValueKind::ipv4Address},
    {524, "conf_server_IPAddress3", ValueKind::ipv4Address},
    {525, "conf_server_IPAddress4", ValueKind::ipv4Address},
    {527, "conf_server_operating_system", ValueKind::text},
    {8960, "conf_server_bladenumber", ValueKind::bladeNumber},
}};

constexpr std::array<ValueWord, 5> words = {{
    {ValueKind::flag, 0, "disabled"},
    {ValueKind::flag, 1, "enabled"},
    {ValueKind::watchdogBehaviour, 0, "continue"},
    {ValueKind::watchdogBehaviour, 2, "reset"},
    {ValueKind::watchdogBehaviour, 4, "power cycle"},
}};

bool hasWord(ValueKind kind, unsigned char value) {
    return std::ranges::any_of(
        words, [&](const ValueWord& word) { return word.kind == kind && word.value == value; });
}

} // namespace

std::span<const ConfVariable> confVariables() noexcept {
    return variables;
}

const ConfVariable* findConfVariable(std::uint16_t id) noexcept {
    const auto* const found = std::ranges::find(variables, id, &ConfVariable::id);
    return found == variables.end() ? nullptr : found;
}

std::span<const ValueWord> valueWords() noexcept {
    return words;
}

bool lengthFits(ValueKind kind, std::size_t length) noexcept {
    switch (kind) {
    case ValueKind::text:
        return length <= 0xFF; // their number is one byte
    case ValueKind::ipv4Address:
        return length == 4;
    case ValueKind::seconds:
        return length == 2;
    default:
        return length == 1;
    }
}

unsigned char checkValue(ValueKind kind, Data value) noexcept {
    if (!lengthFits(kind, value.size())) {
        return completion::requestLengthInvalid;
    }
    const bool enumerated = kind == ValueKind::flag || kind == ValueKind::watchdogBehaviour;
    if (enumerated && !hasWord(kind, value[0])) {
        return completion::invalidDataField;
    }
    return completion::success;
}

} // namespace sim
