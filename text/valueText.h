#pragma once

#include "confVariables.h"

#include <string>
#include <string_view>

namespace sim {

/// By name or number; throws std::invalid_argument when there is no such variable.
const ConfVariable& namedConfVariable(std::string_view name);

/// A value for the human eye; one that does not fit its kind is shown in hexadecimal.
std::string valueText(ValueKind kind, Data value);
/// The bytes of a value given as text; throws std::invalid_argument when it does not fit the kind.
Bytes parseValue(ValueKind kind, const std::string& text);

} // namespace sim
