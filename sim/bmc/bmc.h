#pragma once

#include "agentConnection.h"
#include "bladeLink.h"
#include "confSpace.h"
#include "eepromVersions.h"
#include "fruDevice.h"
#include "ipmiMessage.h"
#include "watchdogTimer.h"

#include <optional>

namespace sim {

/// Last byte of Get Device ID: what kind of server it is. With any other value the slot number
/// command decides.
namespace serverMark {
inline constexpr unsigned char plain = 'A';
inline constexpr unsigned char blade = 'G';
} // namespace serverMark

/// A server's BMC, at first a plain server's: requests in, answers out, and the state in between.
/// It knows nothing of who asks, nor through which interface. Not thread-safe.
class Bmc {
  public:
    explicit Bmc(Now now_);

    /// Completion code and response data.
    Bytes answer(unsigned char netfn, unsigned char lun, unsigned char cmd, Data data);
    /// The same for a request to another controller on the bus, by its slave address.
    Bytes forward(unsigned char slaveAddress, unsigned char netfn, unsigned char cmd, Data data);

    const Now now;
    unsigned char mark = serverMark::plain;
    ConfSpace confSpace;
    AgentConnection agentConnection;
    WatchdogTimer watchdog;
    EepromVersions eepromVersions;
    std::optional<FruDevice> fru;   // of the adapters; none on most servers
    std::optional<BladeLink> blade; // none on a server outside a chassis

  private:
    Reply serve(unsigned char netfn, unsigned char lun, unsigned char cmd, Data data);
};

} // namespace sim
