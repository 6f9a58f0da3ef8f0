#pragma once

#include "ipmiMessage.h"

namespace sim {

/// Whether the BMC takes the host's agent for connected.
class AgentConnection {
  public:
    /// Serves one request, which is its command specifier alone.
    Reply serve(Data request);

    bool connected = true;
};

} // namespace sim
