#pragma once

#include <string>

namespace sim {

/// Where a conversation is to be recorded.
struct RecordOptions {
    std::string record; // empty: nowhere
    std::string pcap;
    bool mask = false;

    bool any() const noexcept { return !record.empty() || !pcap.empty(); }
};

} // namespace sim
