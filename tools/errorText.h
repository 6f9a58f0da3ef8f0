#pragma once

#include "tavError.h"

namespace tavStatus {

/// An error of the agent's for people: without the source line and the end of line.
std::string errorText(const TavError& error);

} // namespace tavStatus
