#pragma once

#include "ipmiMessage.h"

#include <string>

namespace sim {

/// The record in a FRU as a tree, with the state of its checksums. Says what is broken, and tells
/// nothing of what lies behind it.
std::string portInformationText(Data image);

} // namespace sim
