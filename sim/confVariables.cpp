#include "confVariables.h"

#include "text.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include <arpa/inet.h>

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

constexpr std::size_t longestText = 255; // data_length is one byte

struct ValueWord {
    ValueKind kind;
    unsigned char value;
    const char* word;
};

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

bool lengthFits(ValueKind kind, std::size_t length) {
    switch (kind) {
    case ValueKind::text:
        return length <= longestText;
    case ValueKind::ipv4Address:
        return length == 4;
    case ValueKind::seconds:
        return length == 2;
    default:
        return length == 1;
    }
}

std::string wordText(ValueKind kind, unsigned char value) {
    for (const ValueWord& word : words) {
        if (word.kind == kind && word.value == value) {
            return word.word;
        }
    }
    return std::to_string(value);
}

Bytes parseAddress(const std::string& text) {
    Bytes value(4);
    if (::inet_pton(AF_INET, text.c_str(), value.data()) != 1) {
        throw std::invalid_argument("'" + text + "' is not an IPv4 address");
    }
    return value;
}

Bytes parseSeconds(const std::string& text) {
    const long seconds = parseNumber(text, 0, 0xFFFF);
    return {static_cast<unsigned char>(seconds & 0xFF), static_cast<unsigned char>(seconds >> 8)};
}

Bytes parseByte(ValueKind kind, const std::string& text) {
    for (const ValueWord& word : words) {
        if (word.kind == kind && text == word.word) {
            return {word.value};
        }
    }
    return {static_cast<unsigned char>(parseNumber(text, 0, 0xFF))};
}

} // namespace

std::span<const ConfVariable> confVariables() noexcept {
    return variables;
}

const ConfVariable* findConfVariable(std::uint16_t id) noexcept {
    const auto* const found = std::ranges::find(variables, id, &ConfVariable::id);
    return found == variables.end() ? nullptr : found;
}

const ConfVariable& namedConfVariable(std::string_view name) {
    for (const ConfVariable& variable : variables) {
        if (name == variable.name || name == std::to_string(variable.id)) {
            return variable;
        }
    }
    throw std::invalid_argument("'" + std::string(name) +
                                "' is not a variable of the configuration space");
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

std::string valueText(ValueKind kind, Data value) {
    if (!lengthFits(kind, value.size())) {
        return hexText(value);
    }
    switch (kind) {
    case ValueKind::text:
        return quoted(value);
    case ValueKind::ipv4Address:
        return addressText(value);
    case ValueKind::seconds:
        return std::to_string(value[0] + 256 * value[1]) + " s";
    default:
        return wordText(kind, value[0]);
    }
}

Bytes parseValue(ValueKind kind, const std::string& text) {
    switch (kind) {
    case ValueKind::ipv4Address:
        return parseAddress(text);
    case ValueKind::seconds:
        return parseSeconds(text);
    case ValueKind::text:
        break;
    default:
        return parseByte(kind, text);
    }
    if (text.size() > longestText) {
        throw std::invalid_argument("more than 255 characters");
    }
    return {text.begin(), text.end()};
}

} // namespace sim
