#include "misbehaviour.h"

#include <algorithm>

namespace sim {

const Fault* Misbehaviour::find(FaultKind kind, unsigned exchange) const {
    const auto found = std::ranges::find_if(
        faults, [&](const Fault& fault) { return fault.kind == kind && fault.concerns(exchange); });
    return found == faults.end() ? nullptr : &*found;
}

int Misbehaviour::errorOf(DeviceCall call, unsigned exchange, int scheduledError) const {
    if (scheduledError != 0) {
        return scheduledError;
    }
    const auto found = std::ranges::find_if(faults, [&](const Fault& fault) {
        return fault.kind == FaultKind::deviceError && fault.call == call &&
               fault.concerns(exchange);
    });
    return found == faults.end() ? 0 : found->value;
}

int Misbehaviour::errorAt(unsigned long callNumber) const {
    const bool fails = failingCall.fromThenOn ? callNumber >= failingCall.number
                                              : callNumber == failingCall.number;
    return fails ? failingCall.error : 0;
}

int Misbehaviour::signalAt(unsigned long callNumber) const {
    const auto found = std::ranges::find(raisedSignals, callNumber, &RaisedSignal::number);
    return found == raisedSignals.end() ? 0 : found->signal;
}

} // namespace sim
