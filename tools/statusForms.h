#pragma once

#include "status.h"

#include <optional>
#include <string>
#include <string_view>

namespace tavStatus {

/// How a status is shown; docs/status.md has the last three.
enum class Form {
    text,    // for people
    json,    // for programs
    metrics, // for the textfile collector of Prometheus' node exporter
    check,   // for monitoring: one line
};

/// "text", "json", "metrics" or "check"; nothing for other names.
std::optional<Form> namedForm(std::string_view name);

std::string jsonText(const Status& status);
std::string metricsText(const Status& status);

/// A status, shown, and how a program ends that showed it.
struct Shown {
    std::string text;
    std::string complaint; ///< for standard error: why programs get little to read; may be empty
    int exitStatus;
};
Shown showStatus(const Status& status, Form form);

} // namespace tavStatus
