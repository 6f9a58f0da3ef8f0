#pragma once

#include <syslog.h>

// The system log, the agent's only voice. `syslog(3)` levels and facilities. Logging never waits: a
// line that finds the log's queue full is dropped, and the next one that gets through is preceded
// by one that says how many were.

/// Opens the log under `ident`, which must outlive its use.
void openSysLog(const char* ident, int options, int facility) noexcept;
/// Logs "WHAT, code N (TEXT)" for the present errno at LOG_ERR.
void sysLogFailure(const char* what) noexcept;
void sysLog(int priority, const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
