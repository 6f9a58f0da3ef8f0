#pragma once

#include "exchange.h"

#include <string>

namespace sim {

/// Whether a line written there now would be taken at once. That of an exchange always fits into
/// what a pipe that takes anything takes whole.
bool takesLine(int fd) noexcept;

/// A program's own output, apart from the agent's: it goes on when the agent has turned its
/// standard streams elsewhere, and lines of a daemon and its parent never mix.
class Trace {
  public:
    /// For the simulator: appends to `file`, or writes to what is standard output now when that is
    /// empty (and is silent when there is none). Times count from `start_`. Throws
    /// std::system_error.
    Trace(const std::string& file, std::chrono::milliseconds start_);
    /// For an agent at work: to standard output, but a line that is not taken at once is dropped.
    /// The next one that is says how many were.
    explicit Trace(std::chrono::milliseconds start_);
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;
    ~Trace();

    void line(const Exchange& exchange);
    /// In a single write(2).
    void print(const std::string& text);

  private:
    void printUnlessItWaits(const std::string& text);

    int output;
    std::chrono::milliseconds start;
    bool waits;
    unsigned dropped = 0; // since the last line that was taken
};

} // namespace sim
