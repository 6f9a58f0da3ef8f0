#pragma once

#include <string>

/// Asks the BMC, through the agent's own reader, for the versions in its two EEPROMs; a line each.
/// Throws tavIpmi::TavIpmiError when there is no BMC to ask.
std::string versionsText();
