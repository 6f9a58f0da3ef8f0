#pragma once

#include "ipmiMessage.h"

#include <optional>

namespace sim {

enum class DeviceCall {
    open,
    send,
    wait,
    receive,
    close,
    lock, // belongs to no exchange
};
inline constexpr const char* deviceCallNames[] = {"open",    "send",  "wait",
                                                  "receive", "close", "lock"};

/// One request at the device and what came of it. A failed open of the device node is one too:
/// without a request, its `failedCall` says so.
struct Exchange {
    unsigned number = 0; // 1-based
    std::chrono::milliseconds sentAt{};
    std::chrono::milliseconds endedAt{}; // when its outcome was known
    int addressType = 0;                 // IPMI_SYSTEM_INTERFACE_ADDR_TYPE, ...
    unsigned char slaveAddress = 0;      // on the IPMB; 0 otherwise
    unsigned char netfn = 0;
    unsigned char lun = 0;
    unsigned char cmd = 0;
    Bytes request;
    std::optional<Bytes> response; // completion code first; empty when nobody received one
    bool foreignId = false;        // the response was for another message id
    std::vector<int> otherRecords; // receive types of records before it
    std::optional<DeviceCall> failedCall;
    int error = 0; // errno of the failed call
};

/// Sees every exchange once its outcome is known.
using Observer = std::function<void(const Exchange&)>;

} // namespace sim
