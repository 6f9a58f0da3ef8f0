#pragma once

#include "tavIpmiEEPROMVersionInfo.h"

#include <string>

/// What one of the BMC's EEPROMs holds: versions of firmware, sensor data records and booter.
std::string eepromText(const tavIpmi::TavGetEEPROMVersionInfoData& record);

/// Asks the BMC, through the agent's own reader, for the versions in its two EEPROMs; a line each.
/// Throws tavIpmi::TavIpmiError when there is no BMC to ask.
std::string versionsText();
