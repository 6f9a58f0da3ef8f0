#pragma once

#include "fruMask.h"
#include "recordFile.h"

#include <map>

namespace sim {

/// Masks what tells a server and its network from others: serial numbers, the texts of the
/// configuration space, MAC and IP addresses. Consistently, within one record: what was the same
/// stays the same, and what was different stays different (texts as far as they are long enough for
/// it), so that the record still replays.
/// Lengths, checksums, network masks and the classes of addresses stay as they are.
class RecordMask {
  public:
    void apply(RecordHeader& header);
    void apply(Exchange& exchange);

  private:
    void maskAnswered(Exchange& exchange);
    void maskText(std::span<unsigned char> text);
    void maskText(std::string& text);
    void maskMac(std::span<unsigned char> address);
    void maskIp(std::span<unsigned char> address);
    void maskConfSpace(Exchange& exchange);
    void maskConfValue(std::uint16_t variable, std::span<unsigned char> value);
    void maskBlade(Exchange& exchange);
    void maskMacList(std::span<unsigned char> list);

    std::map<std::string, std::string> texts; // by what they were
    AddressShift shift;
    FruMask fru{shift};
};

} // namespace sim
