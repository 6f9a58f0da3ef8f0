#pragma once

#include "outputFile.h"
#include "pcapFile.h"
#include "recordFile.h"
#include "recordMask.h"
#include "recordOptions.h"

#include <memory>
#include <optional>

namespace sim {

/// Takes down every exchange, in the files that are asked for. Nothing that happens to these
/// reaches the agent.
class Recorder {
  public:
    /// `print` gets each exchange as it is recorded. Times count from now on. Throws UsageError
    /// when outputs share a file.
    Recorder(const RecordOptions& options, RecordHeader header, Now now_, Observer print_);

    /// Before each exchange.
    void noteEndRequest();
    void take(const Exchange& exchange);
    /// The agent has ended: the record is whole.
    void close();

  private:
    void write(const Exchange& exchange);

    const Now now;
    const std::chrono::milliseconds start;
    const Observer print;
    std::optional<RecordMask> mask;
    std::optional<OutputFile> record;
    std::unique_ptr<PcapFile> pcap;
    unsigned exchanges = 0;
    bool endNoted = false;
};

} // namespace sim
