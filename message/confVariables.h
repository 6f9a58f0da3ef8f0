#pragma once

#include "ipmiMessage.h"

#include <cstdint>

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

/// A value of one byte that has a name.
struct ValueWord {
    ValueKind kind;
    unsigned char value;
    const char* word;
};
std::span<const ValueWord> valueWords() noexcept;

/// Whether a value of this kind may have that many bytes.
bool lengthFits(ValueKind kind, std::size_t length) noexcept;
/// Completion code for an attempt to write `value` to a variable of this kind.
unsigned char checkValue(ValueKind kind, Data value) noexcept;

} // namespace sim
