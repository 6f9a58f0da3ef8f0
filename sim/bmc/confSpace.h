#pragma once

#include "ipmiMessage.h"

#include <cstdint>
#include <map>

namespace sim {

/// The BMC's configuration space: the variables that the management firmware shows and edits.
class ConfSpace {
  public:
    /// Starts as on a server that runs: described, its soft watchdog switched off, no addresses.
    ConfSpace();

    /// Serves one request: command specifier and what follows it.
    Reply serve(Data request);

    /// What the BMC has, by number. The firmware is free to hold values of any length.
    std::map<std::uint16_t, Bytes> values;

  private:
    Reply read(Data request) const;
    Reply write(Data request);
};

} // namespace sim
