#pragma once

#include "ipmiMessage.h"

#include <string>

namespace sim {

/// Name of a new file with this content. It is on no disk and stays open as long as this process
/// or one that it forked. Throws std::system_error.
std::string memoryFile(Data content);

} // namespace sim
