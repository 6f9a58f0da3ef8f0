#pragma once

#include "status.h"

#include <string>

namespace tavStatus {

/// The whole status for people: first whether all is well, last what is rarely looked at.
std::string statusText(const Status& status);

/// "right", "stale", ...: also the words of the programs' forms.
const char* slotStateText(SlotState state) noexcept;
/// "1.40"
std::string firmwareText(const Identity& identity);

} // namespace tavStatus
