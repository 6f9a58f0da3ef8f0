#pragma once

#include "agentConnection.h"
#include "confSpace.h"
#include "ipmiMessage.h"
#include "watchdogTimer.h"

namespace sim {

/// A plain server's BMC: requests in, answers out, and the state in between. It knows nothing of
/// who asks, nor through which interface. Not thread-safe.
class Bmc {
  public:
    explicit Bmc(Now now_);

    /// Completion code and response data.
    Bytes answer(unsigned char netfn, unsigned char lun, unsigned char cmd, Data data);

    const Now now;
    ConfSpace confSpace;
    AgentConnection agentConnection;
    WatchdogTimer watchdog;

  private:
    Reply serve(unsigned char netfn, unsigned char lun, unsigned char cmd, Data data);
};

} // namespace sim
