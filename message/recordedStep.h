#pragma once

#include "exchange.h"

#include <functional>
#include <optional>

namespace sim {

/// What happened next to an agent that was recorded.
struct RecordedStep {
    unsigned long line = 0;             // of the record, from 1
    std::optional<Exchange> exchange;   // none: the agent was told to end
    std::chrono::milliseconds toldAt{}; // in that case: when
};

/// Gives the steps one by one, nothing when the record has ended.
using NextStep = std::function<std::optional<RecordedStep>()>;

} // namespace sim
