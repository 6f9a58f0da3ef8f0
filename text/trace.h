#pragma once

#include "exchange.h"

#include <string>

namespace sim {

/// The simulator's own output, apart from the agent's: it goes on when the agent has turned its
/// standard streams elsewhere, and lines of a daemon and its parent never mix.
class Trace {
  public:
    /// Appends to `file`, or writes to what is standard output now when that is empty (and is
    /// silent when there is none). Times count from `start_`. Throws std::system_error.
    Trace(const std::string& file, std::chrono::milliseconds start_);
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;
    ~Trace();

    void line(const Exchange& exchange);
    /// In a single write(2).
    void print(const std::string& text);

  private:
    int output;
    std::chrono::milliseconds start;
};

} // namespace sim
