#pragma once

#include "status.h"

#include <span>

namespace tavStatus {

/// The numbers are the exit statuses of monitoring plugins.
enum class Severity {
    ok = 0,
    warning = 1,
    critical = 2,
    unknown = 3,
};

/// Something that is not as it should be.
struct Finding {
    Severity severity;
    const char* key; ///< the same for ever, for programs
    std::string text;
};

/// All that is wrong, the worst first.
std::vector<Finding> findingsIn(const Status& status);
/// That of the worst finding.
Severity worstOf(std::span<const Finding> findings) noexcept;
/// "OK", "WARNING", "CRITICAL", "UNKNOWN"
const char* severityText(Severity severity) noexcept;
/// What is well, in half a line.
std::string summaryText(const Status& status);
/// The line of a monitoring plugin: the severity and every reason.
std::string checkText(const Status& status);

} // namespace tavStatus
