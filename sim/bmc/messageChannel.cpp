#include "messageChannel.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

#include <linux/ipmi.h>

namespace sim {

namespace {

// Global enables. There is no event message buffer to enable, nor anything of a maker's own.
constexpr unsigned char queueInterrupt = 0x01;
constexpr unsigned char eventLogging = 0x08;
constexpr unsigned char messageAvailable = 0x01; // flag
constexpr std::size_t longestQueue = 16;
constexpr std::size_t longestRequest = 255;
constexpr unsigned char busChannel = 0;
constexpr unsigned char systemChannel = 0x0F;
constexpr unsigned char presentChannel = 0x0E;

// A message on the bus: responder, network function and LUN, checksum, requester, sequence number
// and LUN, command, data, checksum (IPMB 1.0, 2.11).
constexpr std::size_t busHeadLength = 3;
constexpr std::size_t busFrameLength = 7; // without data
// Answers to these reach the receive queue; those to other LUNs are for the BMC itself.
constexpr unsigned char ownAddress = 0x20;
constexpr unsigned char queueLun = 2;

bool sumsToZero(Data bytes) {
    return std::accumulate(bytes.begin(), bytes.end(), 0U) % 256 == 0;
}

void appendChecksum(Bytes& bytes, std::size_t from) {
    const unsigned sum =
        std::accumulate(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), 0U);
    bytes.push_back(static_cast<unsigned char>(0U - sum));
}

/// The answer as it comes back over the bus; the requester's own address is left out.
Bytes busResponse(Data request, Data response) {
    const unsigned char requester = request[3];
    const auto netfn = static_cast<unsigned char>((request[1] | 4U) & 0xFCU);
    const auto requesterLun = static_cast<unsigned char>(request[4] & 3U);
    Bytes message = {requester, static_cast<unsigned char>(netfn | requesterLun)};
    appendChecksum(message, 0);
    const std::size_t body = message.size();
    const auto sequence = static_cast<unsigned char>((request[4] & 0xFCU) | (request[1] & 3U));
    message.insert(message.end(), {request[0], sequence, request[5]});
    message.insert(message.end(), response.begin(), response.end());
    appendChecksum(message, body);
    message[0] = busChannel;
    return message;
}

} // namespace

struct MessageChannel::Command {
    unsigned char cmd;
    std::size_t leastLength;
    std::size_t mostLength;
    Reply (MessageChannel::*serve)(Data request);
};

const MessageChannel::Command* MessageChannel::find(unsigned char cmd) noexcept {
    static constexpr std::array<Command, 7> commands = {{
        {command::setGlobalEnables, 1, 1, &MessageChannel::setGlobalEnables},
        {command::getGlobalEnables, 0, 0, &MessageChannel::getGlobalEnables},
        {command::clearMessageFlags, 1, 1, &MessageChannel::clearFlags},
        {command::getMessageFlags, 0, 0, &MessageChannel::getFlags},
        {command::getMessage, 0, 0, &MessageChannel::getMessage},
        {command::sendMessage, 1 + busFrameLength, longestRequest, &MessageChannel::sendMessage},
        {command::getChannelInfo, 1, 1, &MessageChannel::channelInfo},
    }};
    const auto* const found = std::ranges::find(commands, cmd, &Command::cmd);
    return found == commands.end() ? nullptr : found;
}

MessageChannel::MessageChannel(Bmc& bmc_, Observer observer_) :
    bmc(bmc_), observer(std::move(observer_)), globalEnables(eventLogging) {}

void MessageChannel::reset() {
    globalEnables = eventLogging;
    queue.clear();
}

bool MessageChannel::interruptsEnabled() const noexcept {
    return (globalEnables & queueInterrupt) != 0;
}

Bytes MessageChannel::answer(unsigned char netfn, unsigned char lun, unsigned char cmd,
                             Data request) {
    Exchange exchange;
    exchange.addressType = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    exchange.netfn = netfn;
    exchange.lun = lun;
    exchange.cmd = cmd;
    exchange.request.assign(request.begin(), request.end());
    const Command* const own = netfn == netfn::app ? find(cmd) : nullptr;
    Bytes response =
        own == nullptr ? bmc.answer(netfn, lun, cmd, request) : serve(*own, lun, request);
    observe(std::move(exchange), response);
    return response;
}

Bytes MessageChannel::serve(const Command& command, unsigned char lun, Data request) {
    if (lun != 0) {
        return {completion::invalidForLun};
    }
    if (request.size() < command.leastLength || request.size() > command.mostLength) {
        return {completion::requestLengthInvalid};
    }
    const Reply reply = (this->*command.serve)(request);
    Bytes response{reply.code};
    response.insert(response.end(), reply.data.begin(), reply.data.end());
    return response;
}

void MessageChannel::observe(Exchange exchange, Bytes response) {
    exchange.number = ++exchanges;
    exchange.sentAt = bmc.now();
    exchange.response = std::move(response);
    observer(exchange);
}

Reply MessageChannel::setGlobalEnables(Data request) {
    if ((request[0] & ~unsigned{queueInterrupt | eventLogging}) != 0) {
        return {completion::invalidDataField};
    }
    globalEnables = request[0];
    return {completion::success};
}

Reply MessageChannel::getGlobalEnables(Data /*request*/) {
    return {completion::success, {globalEnables}};
}

Reply MessageChannel::clearFlags(Data request) {
    if ((request[0] & messageAvailable) != 0) {
        queue.clear();
    }
    return {completion::success};
}

Reply MessageChannel::getFlags(Data /*request*/) {
    return {completion::success, {queue.empty() ? std::uint8_t{0} : messageAvailable}};
}

Reply MessageChannel::getMessage(Data /*request*/) {
    if (queue.empty()) {
        return {completion::queueEmpty};
    }
    const Bytes message = queue.front();
    queue.pop_front();
    return {completion::success, message};
}

/// A response to a request that came in over the bus would be one with an odd network function:
/// none comes in here. Tracking, authentication and encryption are for channels with sessions.
Reply MessageChannel::sendMessage(Data request) {
    const Data frame = request.subspan(1);
    const auto busNetfn = static_cast<unsigned char>(frame[1] >> 2U);
    if (request[0] != busChannel || busNetfn % 2 != 0 || !sumsToZero(frame.first(busHeadLength)) ||
        !sumsToZero(frame.subspan(busHeadLength))) {
        return {completion::invalidDataField};
    }
    const Data data = frame.subspan(busFrameLength - 1, frame.size() - busFrameLength);
    Exchange exchange;
    exchange.addressType = IPMI_IPMB_ADDR_TYPE;
    exchange.slaveAddress = frame[0];
    exchange.netfn = busNetfn;
    exchange.lun = frame[1] & 3U;
    exchange.cmd = frame[5];
    exchange.request.assign(data.begin(), data.end());
    const Bytes response = bmc.forward(frame[0], busNetfn, frame[5], data);
    observe(std::move(exchange), response);
    if (response[0] == completion::nakOnWrite) {
        return {completion::nakOnWrite};
    }
    const bool forQueue = frame[3] == ownAddress && (frame[4] & 3U) == queueLun;
    if (forQueue && queue.size() < longestQueue) {
        queue.push_back(busResponse(frame, response));
    }
    return {completion::success};
}

/// Channel, medium, protocol, no sessions, the protocol's owner (IPMI itself), interrupts.
Reply MessageChannel::channelInfo(Data request) {
    const auto channel = static_cast<unsigned char>(request[0] & 0x0FU);
    if (channel == busChannel) { // IPMB
        return {completion::success, {busChannel, 0x01, 0x01, 0x00, 0xF2, 0x1B, 0x00, 0x00, 0x00}};
    }
    if (channel == systemChannel || channel == presentChannel) { // KCS, unspecified interrupts
        return {completion::success,
                {systemChannel, 0x0C, 0x05, 0x00, 0xF2, 0x1B, 0x00, 0xFF, 0xFF}};
    }
    return {completion::invalidDataField};
}

} // namespace sim
