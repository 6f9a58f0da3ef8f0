#pragma once

#include "exchange.h"

#include <string>

namespace sim {

/// The command by name and what it asks for: "Configuration space: write conf_soft_watchdog_time
/// = 300 s".
std::string requestText(const Exchange& exchange);
/// What came of it: "ok, 300 s", "0xC1 invalid command", "no answer", "send failed: EIO".
std::string outcomeText(const Exchange& exchange);

/// The fields of a watchdog timer by name.
std::string timerUseText(unsigned use);
std::string timerActionText(unsigned action);
/// The timer uses whose expiry is recorded in `flags`, or "none".
std::string expirationText(unsigned flags);
/// A countdown in 100 ms counts: "240.0 s".
std::string countdownText(unsigned counts);

} // namespace sim
