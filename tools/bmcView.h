#pragma once

#include "simDevice.h"

#include <string>

namespace sim {

/// What the BMC has at last, as aligned tables.
std::string bmcView(const Bmc& bmc);
/// How much the device was used, and what is still open.
std::string usageText(const SimDevice& device);

} // namespace sim
