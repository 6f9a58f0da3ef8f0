#pragma once

#include "exchange.h"
#include "outputFile.h"

#include <memory>

struct pcap;
struct pcap_dumper;

namespace sim {

/// A conversation for Wireshark and its relatives, each message in a packet of its own: IPMI 1.5
/// without authentication over RMCP, from and to UDP port 623 of two made-up hosts. A request to a
/// controller on the IPMB is wrapped in Send Message, as a BMC on a network takes it. Messages of
/// more than 255 bytes are cut: no packet can carry them.
class PcapFile {
  public:
    /// Packets count from `start` on the clock of the exchanges, which is `startedAt` in the
    /// world's time. Throws UsageError as OutputFile does, std::bad_alloc.
    PcapFile(const std::string& path, std::chrono::milliseconds start_,
             std::chrono::milliseconds startedAt_);
    PcapFile(const PcapFile&) = delete;
    PcapFile& operator=(const PcapFile&) = delete;
    ~PcapFile();

    void write(const Exchange& exchange);

  private:
    void writePacket(const Bytes& packet, std::chrono::milliseconds time);

    const std::chrono::milliseconds start;
    const std::chrono::milliseconds startedAt;
    OutputFile output;
    pcap* capture;
    pcap_dumper* dumper = nullptr;
};

} // namespace sim
