#pragma once

#include "misbehaviour.h"

#include <string_view>

namespace sim {

/// "EXCHANGES:WHAT", where EXCHANGES is "3", "2-4" or "5+", and WHAT one of
///   cc=CODE  silent  silent-bus  length=BYTES  bytes=HEX@PLACE  foreign-id  events=COUNT
///   commands=COUNT type=NUMBER  slow=MILLISECONDS  errno=NAME@CALL (CALL is open, send, wait,
///   receive, close or lock; a lock goes with the exchange that follows)
/// Throws std::invalid_argument for anything else, as the next two do.
Fault parseFault(std::string_view text);
/// "NUMBER:ERRNO" or "NUMBER+:ERRNO".
FailingCall parseFailingCall(std::string_view text);
/// "NUMBER:SIGNAL".
RaisedSignal parseRaisedSignal(std::string_view text);

} // namespace sim
