#pragma once

#include "bmc.h"
#include "exchange.h"

#include <deque>

namespace sim {

/// A BMC as the host's driver finds it at the system interface: beside the BMC's own commands there
/// are those of the messaging (IPMI 2.0, 22), with which the driver reaches other controllers on
/// the IPMB and fetches their answers.
class MessageChannel {
  public:
    /// `observer` sees each request; of a message to the bus that message and its answer.
    MessageChannel(Bmc& bmc_, Observer observer_);

    /// Completion code and response data.
    Bytes answer(unsigned char netfn, unsigned char lun, unsigned char cmd, Data request);
    /// Back to the state after power-on; what the BMC knows stays.
    void reset();

    /// Something waits to be fetched.
    bool attention() const noexcept { return !queue.empty(); }
    bool interruptsEnabled() const noexcept;

  private:
    struct Command;
    static const Command* find(unsigned char cmd) noexcept;

    Bytes serve(const Command& command, unsigned char lun, Data request);
    Reply setGlobalEnables(Data request);
    Reply getGlobalEnables(Data request);
    Reply clearFlags(Data request);
    Reply getFlags(Data request);
    Reply getMessage(Data request);
    Reply sendMessage(Data request);
    Reply channelInfo(Data request);
    void observe(Exchange exchange, Bytes response);

    Bmc& bmc;
    const Observer observer;
    unsigned exchanges = 0;
    unsigned char globalEnables;
    std::deque<Bytes> queue; // answers from the bus, as Get Message gives them
};

} // namespace sim
