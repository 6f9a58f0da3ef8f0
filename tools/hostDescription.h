#pragma once

#include "recordFile.h"

#include <span>

namespace sim {

/// What a record is headed with, as this host is now: who it is, and how it is connected. What
/// cannot be found out is left out. `options` are the agent's, up to a null pointer or the end.
RecordHeader describeHost(const std::string& program, std::span<char* const> options);

/// The host's network interfaces, by index.
std::vector<RecordedInterface> describeInterfaces();

} // namespace sim
