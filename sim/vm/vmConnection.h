#pragma once

#include "messageChannel.h"

namespace sim {

/// The connection to a virtual machine's IPMI interface that has its BMC outside: the protocol that
/// QEMU's ipmi-bmc-extern speaks. Messages carry requests and responses, control frames what a
/// wire to the interface would: attention, interrupts, reset.
class VmConnection {
  public:
    explicit VmConnection(MessageChannel& channel_) : channel(channel_) {}

    /// What is sent first.
    static Bytes greeting();
    /// Takes bytes as they come in, gives those to send. What is no whole and sound frame is
    /// dropped, without an answer.
    Bytes receive(Data bytes);

  private:
    void take(unsigned char byte, Bytes& output);
    void serveFrame(unsigned char end, Bytes& output);
    void serveMessage(Bytes& output);
    void updateInterrupts(Bytes& output);
    void updateAttention(Bytes& output);

    MessageChannel& channel;
    Bytes frame;
    bool escaped = false;
    bool spoilt = false;
    bool attention = false;
    bool interrupts = false;
};

} // namespace sim
