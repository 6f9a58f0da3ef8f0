#pragma once

#include "commandText.h"

namespace sim {

/// How the commands read with which a driver runs the system interface.
std::span<const CommandText> messagingTexts() noexcept;

} // namespace sim
