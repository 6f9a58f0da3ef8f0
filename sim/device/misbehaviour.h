#pragma once

#include "exchange.h"

#include <limits>
#include <vector>

namespace sim {

enum class FaultKind {
    completionCode, // the request is refused with completion code `value`
    silent,         // the request is lost: no answer
    silentBus,      // the same if it is for another controller on the IPMB
    length,         // the answer is cut or filled up to `value` bytes, completion code included
    bytes,          // the answer has `bytes` from place `value` on, whatever its length was
    foreignId,      // the answer carries another message id
    events,         // `value` asynchronous events come before the answer
    commands,       // `value` incoming commands come before the answer
    recordType,     // a record with receive type `value` comes before the answer
    slow,           // the answer takes `value` milliseconds
    deviceError,    // device call `call` fails with errno `value`
};

/// Something that goes wrong at exchanges `first` to `last`.
struct Fault {
    static constexpr unsigned always = std::numeric_limits<unsigned>::max();

    unsigned first = 1;
    unsigned last = always;
    FaultKind kind = FaultKind::silent;
    int value = 0;
    DeviceCall call = DeviceCall::send;
    Bytes bytes = {};

    bool concerns(unsigned exchange) const { return first <= exchange && exchange <= last; }
};

/// A device call, counted over all kinds from 1, that fails: this one alone or all from it on.
struct FailingCall {
    unsigned long number = 0; // 0: none
    bool fromThenOn = false;
    int error = 0;
};

/// A signal that this process sends itself when it makes its device call `number`.
struct RaisedSignal {
    unsigned long number = 0; // 0: none
    int signal = 0;
};

/// All that is to go wrong. Of faults of one kind at one exchange the first counts.
struct Misbehaviour {
    std::vector<Fault> faults;
    FailingCall failingCall;
    std::vector<RaisedSignal> raisedSignals;

    /// Null when there is no fault of this kind at this exchange.
    const Fault* find(FaultKind kind, unsigned exchange) const;
    /// errno value for a device call of this exchange: the scheduled one, or a fault's, or 0.
    int errorOf(DeviceCall call, unsigned exchange, int scheduledError) const;
    /// errno value, or signal, in store for the device call of this number; 0 for none.
    int errorAt(unsigned long callNumber) const;
    int signalAt(unsigned long callNumber) const;
};

} // namespace sim
