#pragma once

#include "ipmiMessage.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace sim {

enum class ValueKind {
    text,
    ipv4Address,
    flag,
    seconds,
    watchdogBehaviour,
    bladeNumber,
};

/// One numbered variable of the configuration space.
struct ConfVariable {
    std::uint16_t id;
    const char* name;
    ValueKind kind;
};

/// All that are defined, by ascending number; a BMC need not have each of them.
std::span<const ConfVariable> confVariables() noexcept;
/// Null when there is no such variable.
const ConfVariable* findConfVariable(std::uint16_t id) noexcept;
/// By name or number; throws std::invalid_argument when there is no such variable.
const ConfVariable& namedConfVariable(std::string_view name);

/// Completion code for an attempt to write `value` to a variable of this kind.
unsigned char checkValue(ValueKind kind, Data value) noexcept;
/// A value for the human eye; one that does not fit its kind is shown in hexadecimal.
std::string valueText(ValueKind kind, Data value);
/// The bytes of a value given as text; throws std::invalid_argument when it does not fit the kind.
Bytes parseValue(ValueKind kind, const std::string& text);

} // namespace sim
