#pragma once

#include "commandText.h"

namespace sim {

/// How the commands between a blade and its management blade read.
std::span<const CommandText> bladeTexts() noexcept;

/// Values of the wire by name: "IPv6 link-local", "OS running".
std::string addressIndexText(unsigned index);
std::string osStatusText(unsigned status);

} // namespace sim
