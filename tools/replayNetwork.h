#pragma once

#include "recordFile.h"

namespace sim {

/// Gives this process a network of its own with these interfaces: numbers, names, addresses, and
/// whether they are up. Throws std::runtime_error, one line that says what is missing.
void setUpNetwork(const std::vector<RecordedInterface>& interfaces);

} // namespace sim
