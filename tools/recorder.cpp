#include "recorder.h"

#include "agentSignals.h"
#include "bmcOptions.h"

namespace sim {

namespace {

std::chrono::milliseconds worldTime() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
}

} // namespace

Recorder::Recorder(const RecordOptions& options, RecordHeader header, Now now_, Observer print_) :
    now(std::move(now_)), start(now()), print(std::move(print_)) {
    if (options.mask) {
        header.masked = true;
        mask.emplace().apply(header);
    }
    if (!options.record.empty()) {
        record.emplace(options.record, "recording");
        record->write(recordHeaderText(header));
    }
    if (!options.pcap.empty()) {
        pcap = std::make_unique<PcapFile>(options.pcap, start, worldTime());
    }
}

void Recorder::take(const Exchange& exchange) {
    if (mask) {
        Exchange masked = exchange;
        mask->apply(masked);
        write(masked);
    } else {
        write(exchange);
    }
    exchanges = exchange.number;
}

/// Into the record last: what memory does not suffice for is not counted there.
void Recorder::write(const Exchange& exchange) {
    print(exchange);
    if (pcap) {
        pcap->write(exchange);
    }
    if (record) {
        record->write(recordLine(exchange, start));
    }
}

void Recorder::noteEndRequest() {
    if (!endNoted && agentSignals::endRequested()) {
        endNoted = true;
        if (record) {
            record->write(recordEndRequest(now() - start));
        }
    }
}

void Recorder::close() {
    noteEndRequest();
    if (record) {
        record->write(recordClosing(exchanges));
    }
}

} // namespace sim
