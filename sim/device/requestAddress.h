#pragma once

#include "exchange.h"

#include <linux/ipmi.h>

namespace sim {

/// Takes the request's addressee into `exchange`. Gives the errno value with which the driver
/// refuses an address that it cannot deliver to, otherwise 0.
int takeAddress(const ipmi_req& request, Exchange& exchange) noexcept;
/// Tells in `record` where the answer to `exchange` comes from; the caller has made sure of the
/// room for it.
void giveAddress(const Exchange& exchange, ipmi_recv& record) noexcept;
/// Room that any address needs.
inline constexpr unsigned addressRoom = 8;

} // namespace sim
