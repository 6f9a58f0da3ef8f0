#pragma once

#include "tavIpmi.h"

#include <chrono>

/// How long an agent stays away from the record before it locks it once more: long enough for one
/// that waits, and looks more often, to come first.
inline constexpr std::chrono::milliseconds pniLockTurn{20};

/// Keeps other agents away from the port information until `ipmi` is gone. False when another
/// program had it for some ten seconds, or has it when the end of this agent is requested. A device
/// that cannot be locked is used without.
bool lockPniRecord(const tavIpmi::TavIpmi& ipmi) noexcept;
