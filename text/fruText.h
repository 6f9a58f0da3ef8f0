#pragma once

#include "commandText.h"

namespace sim {

/// How the commands about an adapter's FRU read.
std::span<const CommandText> fruTexts() noexcept;

} // namespace sim
